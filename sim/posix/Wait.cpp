// Waiting for descriptors, with time-outs on the simulated clock.

#if defined(__GNUC__) && !defined(__clang__)
// libc's header says that poll() only writes its records; this one reads them as well.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <poll.h>
#include <sys/select.h>

#include <cstdlib>

#include "sim/Clock.h"
#include "sim/HostTime.h"
#include "sim/posix/Descriptors.h"
#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

using sim::Clock;
using sim::Descriptors;
using sim::fromTimespec;
using sim::HostTime;
using sim::toTimespec;

namespace {

bool failsByFault(const pollfd* files, nfds_t count) {
    for (nfds_t i = 0; i < count; ++i) {
        if (const auto file = Descriptors::get().find(files[i].fd))
            return sim::failsByFault("poll", file->path());
    }
    return false;
}

bool runsOnHostTime() { return HostTime::isActive() || Clock::get().speed() == 1.0; }

timespec onHost(const timespec& simulated) {
    return toTimespec(Clock::get().realDuration(fromTimespec(simulated)));
}

timeval toTimeval(std::chrono::nanoseconds time) {
    const timespec exact = toTimespec(time);
    timeval result{};
    result.tv_sec = exact.tv_sec;
    result.tv_usec = exact.tv_nsec / 1000;
    return result;
}

std::chrono::nanoseconds fromTimeval(const timeval& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

}  // namespace

extern "C" {

int poll(pollfd* files, nfds_t count, int timeoutMs) {
    if (failsByFault(files, count))
        return -1;
    if (timeoutMs <= 0 || runsOnHostTime())
        return SIM_REAL(poll)(files, count, timeoutMs);
    // In nanoseconds, since at speed the rest of a millisecond counts.
    const timespec real =
        toTimespec(Clock::get().realDuration(std::chrono::milliseconds(timeoutMs)));
    return SIM_REAL(ppoll)(files, count, &real, nullptr);
}

int __poll_chk(pollfd* files, nfds_t count, int timeoutMs, size_t size) {
    if (size / sizeof *files < count)
        abort();
    return ::poll(files, count, timeoutMs);
}

int ppoll(pollfd* files, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    if (failsByFault(files, count))
        return -1;
    if (!timeout || runsOnHostTime())
        return SIM_REAL(ppoll)(files, count, timeout, mask);
    const timespec real = onHost(*timeout);
    return SIM_REAL(ppoll)(files, count, &real, mask);
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
    if (!timeout || runsOnHostTime())
        return SIM_REAL(select)(count, readable, writable, exceptional, timeout);
    timeval real = toTimeval(Clock::get().realDuration(fromTimeval(*timeout)));
    const int result = SIM_REAL(select)(count, readable, writable, exceptional, &real);
    *timeout = toTimeval(Clock::get().simulatedDuration(fromTimeval(real)));
    return result;
}

int pselect(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
            const timespec* timeout, const sigset_t* mask) {
    if (!timeout || runsOnHostTime())
        return SIM_REAL(pselect)(count, readable, writable, exceptional, timeout, mask);
    const timespec real = onHost(*timeout);
    return SIM_REAL(pselect)(count, readable, writable, exceptional, &real, mask);
}

}  // extern "C"
