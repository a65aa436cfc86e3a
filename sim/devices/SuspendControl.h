#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

#include "sim/Clock.h"
#include "sim/Device.h"
#include "sim/Journal.h"

namespace sim {

class InputDevice;
class RealTimeClock;

/// "/sys/power/state": a write of "mem" suspends the terminal and returns after it has woken.
///
/// What wakes it: a key that was planned for this suspend, if it comes before the alarm; the
/// clock's alarm; without either, the next key pressed. Suspends with a planned end take no time,
/// the clocks jump; the others last until the key.
class SuspendControl : public Device {
public:
    SuspendControl(Journal& journal, RealTimeClock& clockChip, InputDevice& keys);

    /// Plans for the next suspend that has no plan yet: `key` is pressed after `after`, and let go.
    void wakeByKey(int key, Nanoseconds after);

    /// Suspends last as long as their alarm says, in (scaled) real time, instead of jumping over
    /// it.
    void setLasting(bool lasting);

    /// Nobody is left who could press a key: a suspend that only a key would end ends at once.
    void setUnattended();

    /// A key press, planned or not, wakes a suspend that lasts.
    void keyPressed();

    int suspends() const;  ///< how many there have been
    bool isSuspended() const;

    ssize_t write(const void* data, size_t size) override;

private:
    struct PlannedKey {
        int code;
        Nanoseconds after;
    };

    bool sleepUntilKey(std::unique_lock<std::mutex>& held, Nanoseconds alarm);

    Journal& journal;
    RealTimeClock& rtc;
    InputDevice& keypad;

    mutable std::mutex mutex;  // guards what follows
    std::condition_variable woken;
    std::deque<PlannedKey> plans;
    bool isLasting = false;
    bool isUnattended = false;
    bool isAsleep = false;
    int count = 0;
};

}  // namespace sim
