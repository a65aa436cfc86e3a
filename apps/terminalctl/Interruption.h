#pragma once

#include <thread>

namespace ctl {

/// Has the signals that end a program end the event loop instead, so that what has been brought up
/// is taken down in order. A second signal ends the program at once. Signals that were ignored stay
/// so.
///
/// One in the process, made before any other thread.
class Interruption {
public:
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    /// Whether there has been a signal: for whoever waits outside the event loop.
    static bool isRequested();

private:
    std::thread watcher;
};

}  // namespace ctl
