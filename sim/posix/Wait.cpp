// Waiting for descriptors, with time-outs on the simulated clock.

#if defined(__GNUC__) && !defined(__clang__)
// libc's header says that poll() only writes its records; this one reads them as well.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <initializer_list>
#include <memory>

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

using File = std::shared_ptr<sim::OpenFile>;

File firstOf(const pollfd* files, nfds_t count) {
    File file;
    for (nfds_t i = 0; i < count && !file; ++i)
        file = Descriptors::get().find(files[i].fd);
    return file;
}

File firstOf(int count, std::initializer_list<const fd_set*> sets) {
    File file;
    for (int fd = 0; fd < std::min(count, FD_SETSIZE) && !file; ++fd) {
        for (const fd_set* set : sets) {
            if (set && FD_ISSET(fd, set))
                file = Descriptors::get().find(fd);
        }
    }
    return file;
}

/// A fault concerns the first of the terminal's descriptors that is waited for.
bool failsByFault(const char* call, const File& file) {
    return file && sim::failsByFault(call, file->path());
}

bool runsOnHostTime() { return HostTime::isActive() || Clock::get().speed() == 1.0; }

bool isValid(const timespec& time) {
    return time.tv_sec >= 0 && time.tv_nsec >= 0 && time.tv_nsec < 1'000'000'000;
}

/// What the real call has to refuse stays as it is.
timespec onHost(const timespec& simulated) {
    return isValid(simulated) ? toTimespec(Clock::get().realDuration(fromTimespec(simulated)))
                              : simulated;
}

/// Rounds up. For calls of which not every kernel has the form that takes less.
int onHostMs(std::chrono::nanoseconds simulated) {
    using std::chrono::milliseconds;
    const std::chrono::nanoseconds longest = milliseconds(INT_MAX);
    const auto real = std::min(Clock::get().realDuration(simulated), longest);
    return static_cast<int>(std::chrono::ceil<milliseconds>(real).count());
}

/// Rounds up: a short wait is not to become none.
timeval toTimeval(std::chrono::nanoseconds time) {
    const timespec exact = toTimespec(time);
    timeval result{};
    result.tv_sec = exact.tv_sec;
    result.tv_usec = (exact.tv_nsec + 999) / 1000;
    if (result.tv_usec == 1'000'000) {
        ++result.tv_sec;
        result.tv_usec = 0;
    }
    return result;
}

std::chrono::nanoseconds fromTimeval(const timeval& time) {
    timespec exact{};
    exact.tv_sec = time.tv_sec;
    exact.tv_nsec = static_cast<long>(time.tv_usec * 1000);
    return fromTimespec(exact);
}

}  // namespace

extern "C" {

int poll(pollfd* files, nfds_t count, int timeoutMs) {
    if (failsByFault("poll", firstOf(files, count)))
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
    if (failsByFault("poll", firstOf(files, count)))
        return -1;
    if (!timeout || runsOnHostTime())
        return SIM_REAL(ppoll)(files, count, timeout, mask);
    const timespec real = onHost(*timeout);
    return SIM_REAL(ppoll)(files, count, &real, mask);
}

int __ppoll_chk(pollfd* files, nfds_t count, const timespec* timeout, const sigset_t* mask,
                size_t size) {
    if (size / sizeof *files < count)
        abort();
    return ::ppoll(files, count, timeout, mask);
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
    if (failsByFault("select", firstOf(count, {readable, writable, exceptional})))
        return -1;
    const bool isScaled = timeout && !runsOnHostTime() && timeout->tv_sec >= 0 &&
                          timeout->tv_usec >= 0 && timeout->tv_usec < 1'000'000;
    if (!isScaled)
        return SIM_REAL(select)(count, readable, writable, exceptional, timeout);
    timeval real = toTimeval(Clock::get().realDuration(fromTimeval(*timeout)));
    const int result = SIM_REAL(select)(count, readable, writable, exceptional, &real);
    *timeout = toTimeval(Clock::get().simulatedDuration(fromTimeval(real)));
    return result;
}

int pselect(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
            const timespec* timeout, const sigset_t* mask) {
    if (failsByFault("select", firstOf(count, {readable, writable, exceptional})))
        return -1;
    if (!timeout || runsOnHostTime())
        return SIM_REAL(pselect)(count, readable, writable, exceptional, timeout, mask);
    const timespec real = onHost(*timeout);
    return SIM_REAL(pselect)(count, readable, writable, exceptional, &real, mask);
}

// What an epoll descriptor watches is the host's, of the terminal's serial lines too.
int epoll_pwait(int fd, epoll_event* events, int count, int timeoutMs, const sigset_t* mask) {
    const bool isScaled = timeoutMs > 0 && !runsOnHostTime();
    const int realMs = isScaled ? onHostMs(std::chrono::milliseconds(timeoutMs)) : timeoutMs;
    return SIM_REAL(epoll_pwait)(fd, events, count, realMs, mask);
}
int epoll_pwait2(int fd, epoll_event* events, int count, const timespec* timeout,
                 const sigset_t* mask) {
    if (!timeout || runsOnHostTime() || !isValid(*timeout))
        return SIM_REAL(epoll_pwait2)(fd, events, count, timeout, mask);
    return SIM_REAL(epoll_pwait)(fd, events, count, onHostMs(fromTimespec(*timeout)), mask);
}
int epoll_wait(int fd, epoll_event* events, int count, int timeoutMs) {
    return epoll_pwait(fd, events, count, timeoutMs, nullptr);
}

}  // extern "C"
