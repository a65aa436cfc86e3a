#pragma once

#include "foundation/PowerState.h"

/// Told by the power manager before each change of the power state. Not destroyed through this
/// interface.
class PowerEventListener {
public:
    /// Does what the change needs. False vetoes it: the state stays, listeners further on are not
    /// asked, those already asked are not told.
    ///
    /// Runs on whichever thread changes the power state, with the broadcaster's lock held and
    /// possibly the power manager's idle lock. Whatever waits for either waits for ever: it must
    /// not add or remove listeners, nor initialize, connect, disconnect or shut down what does
    /// (network connections, the multiplexer), nor call PowerManager::setPowerMode(),
    /// getCurrentState(), getIdleDuration(), enableTransitions() or kickIdle(). Nor may it wait for
    /// the windowing library's lock, or for a thread that does, as a reader's shutdown(): the
    /// event thread changes the power state under that lock.
    virtual bool powerStateChange(PowerState from, PowerState to) = 0;

protected:
    ~PowerEventListener() = default;
};
