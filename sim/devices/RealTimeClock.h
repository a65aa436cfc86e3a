#pragma once

#include <mutex>
#include <optional>

#include "sim/Clock.h"
#include "sim/Device.h"
#include "sim/Journal.h"

namespace sim {

/// The clock chip: keeps the terminal's local time, whatever the system's clock is set to, runs on
/// through a suspend, and has one alarm, whose interrupt is read as 4 bytes. No read of it waits.
class RealTimeClock : public Device {
public:
    explicit RealTimeClock(Journal& journal);

    /// The chip has lost its time: it cannot be read until it is set again.
    void loseTime();

    /// Seconds since the epoch, of the local time that the chip shows.
    long seconds() const;

    Nanoseconds untilAlarm() const;  ///< the longest duration when no alarm is armed

    /// Raises the interrupt if the alarm is due; true when there is one that nobody has read yet.
    bool ringIfDue();

    ssize_t read(void* buffer, size_t size) override;
    int ioctl(unsigned long request, void* argument) override;

private:
    int readTime(void* argument) const;
    int setTime(const void* argument);
    int setAlarm(const void* argument);
    Nanoseconds now() const { return Clock::get().boot() + offset; }
    void checkAlarm();

    Journal& journal;

    mutable std::mutex mutex;  // guards what follows
    Nanoseconds offset;        // of the chip's time from the time since the start
    bool isValid = true;
    std::optional<Nanoseconds> alarm;
    bool interrupted = false;
};

}  // namespace sim
