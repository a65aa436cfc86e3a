#pragma once

#include "foundation/Cond.h"
#include "foundation/Thread.h"

class BluetoothModule;

/// The thread that has the text-command module read what comes in: once when it starts, and once
/// after every startRead(). In between it sleeps, and what arrives stays in the serial line.
class BluetoothReader final : public Thread {
public:
    /// Starts the thread.
    explicit BluetoothReader(BluetoothModule* polledModule);

    /// Stops the thread and waits for its end: until a poll under way is over, and by force after
    /// 10 seconds.
    ~BluetoothReader() override;

    /// Ends the thread's sleep. Nothing is counted: one that comes while it polls is lost.
    void startRead();

    void run() override;

private:
    // A semaphore, but that the order to end is given under its lock and cannot get lost.
    Cond wake;
    bool isEnding = false;  // guarded by wake

    BluetoothModule* const module;
};
