#pragma once

#include <memory>

#include "Settings.h"
#include "foundation/Thread.h"

namespace demo {

/// Brings the link up beside the windows, which takes a while, tells what it is like, and takes it
/// down at its end. Over Bluetooth it talks to the device of the settings, too.
class Link : public Thread {
public:
    explicit Link(Settings linkSettings);
    ~Link() override;

    void run() override;

private:
    bool awaitUp();

    Settings settings;
    std::unique_ptr<NetworkConnection> connection;  // null: no such kind of link
};

}  // namespace demo
