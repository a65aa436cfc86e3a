#pragma once

#include <unistd.h>

#include <new>
#include <thread>
#include <utility>

#include "sim/HostTime.h"
#include "sim/SignalsBlocked.h"

namespace sim {

/// A thread of the simulator's own: it lives on the host's time and takes no signal, and starting
/// it is no call of the application. A child of the process that started it has no such thread, and
/// only forgets it.
class ServerThread {
public:
    ServerThread() = default;
    ServerThread(const ServerThread&) = delete;
    ServerThread& operator=(const ServerThread&) = delete;
    ~ServerThread() {
        if (thread.joinable())
            new (std::nothrow)
                std::thread(std::move(thread));  // neither joined nor detached: there is none
    }

    template <class Body> void start(Body body) {
        const SignalsBlocked blocked;
        const HostTime hostTime;
        owner = getpid();
        thread = std::thread([body] {
            const HostTime onHost;
            body();
        });
    }

    /// True until it has been joined; false in a child.
    bool isRunning() const { return thread.joinable() && owner == getpid(); }

    bool isCaller() const { return thread.get_id() == std::this_thread::get_id(); }

    void join() { thread.join(); }

private:
    std::thread thread;
    pid_t owner = 0;
};

}  // namespace sim
