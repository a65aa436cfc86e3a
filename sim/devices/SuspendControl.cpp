#include "sim/devices/SuspendControl.h"

#include <cerrno>
#include <string_view>

#include "sim/HostTime.h"
#include "sim/devices/InputDevice.h"
#include "sim/devices/RealTimeClock.h"

namespace sim {

SuspendControl::SuspendControl(Journal& eventJournal, RealTimeClock& clockChip, InputDevice& keys)
    : journal(eventJournal), rtc(clockChip), keypad(keys) {}

void SuspendControl::wakeByKey(int key, Nanoseconds after) {
    const std::lock_guard<std::mutex> held(mutex);
    plans.push_back({key, after});
}

void SuspendControl::setLasting(bool lasting) {
    const std::lock_guard<std::mutex> held(mutex);
    isLasting = lasting;
}

void SuspendControl::setUnattended() {
    const std::lock_guard<std::mutex> held(mutex);
    isUnattended = true;
    woken.notify_all();
}

void SuspendControl::keyPressed() {
    const std::lock_guard<std::mutex> held(mutex);
    isAsleep = false;
    woken.notify_all();
}

int SuspendControl::suspends() const {
    const std::lock_guard<std::mutex> held(mutex);
    return count;
}

bool SuspendControl::isSuspended() const {
    const std::lock_guard<std::mutex> held(mutex);
    return isAsleep;
}

ssize_t SuspendControl::write(const void* data, size_t size) {
    const std::string_view text(static_cast<const char*>(data), size);
    if (text != "mem" && text != "mem\n")
        return failWith(EINVAL);
    std::unique_lock<std::mutex> held(mutex);  // a key pressed after the note must not be missed
    journal.note("power", "suspend");
    ++count;
    const Nanoseconds alarm = rtc.untilAlarm();
    if (!plans.empty() && plans.front().after < alarm) {
        const PlannedKey key = plans.front();
        plans.pop_front();
        held.unlock();
        Clock::get().sleepThrough(key.after);
        journal.note("power", "woken by key");
        keypad.key(key.code, true);
        keypad.key(key.code, false);
    } else if (alarm != Nanoseconds::max() && !isLasting) {
        held.unlock();
        Clock::get().sleepThrough(alarm);
        rtc.ringIfDue();
        journal.note("power", "woken by alarm");
    } else {
        const bool wokenByKey = sleepUntilKey(held, alarm);
        if (isUnattended)
            journal.note("power", "nothing is left to wake it");
        held.unlock();
        rtc.ringIfDue();
        journal.note("power", wokenByKey ? "woken by key" : "woken by alarm");
    }
    return static_cast<ssize_t>(size);
}

/// False when the alarm came first.
bool SuspendControl::sleepUntilKey(std::unique_lock<std::mutex>& held, Nanoseconds alarm) {
    const Nanoseconds longest = std::chrono::hours(24 * 365);
    const HostDeadline deadline(Clock::get().realDuration(std::min(alarm, longest)));
    isAsleep = true;
    Clock::get().freeze();
    while (isAsleep && !isUnattended && deadline.wait(woken, held)) {}
    const bool wokenByKey = !isAsleep || isUnattended;
    isAsleep = false;
    Clock::get().thaw();
    return wokenByKey;
}

}  // namespace sim
