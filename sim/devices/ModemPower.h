#pragma once

#include <atomic>

namespace sim {

/// How the radio module takes its power key, as its status line shows it.
class ModemPower {
public:
    /// The module answers the `count`th pulse of its power key from now; 0: none any more.
    void answerPulse(int count) { pulsesLeft = count; }

    /// It takes `count` readings of the status line until a module told to go off is off; negative:
    /// for ever.
    void lingerFor(int count) { readingsLeft = count; }

    void setOn(bool nowOn) { on = nowOn; }
    bool isOn() const { return on; }

    void keyReleased();
    int readStatus();

private:
    std::atomic<bool> on{false};
    std::atomic<bool> goingOff{false};
    std::atomic<int> pulsesLeft{1};
    std::atomic<int> readingsLeft{0};
};

}  // namespace sim
