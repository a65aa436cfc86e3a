// Clocks, sleeps and timed locks on the simulated clock. Setting the clock sets the simulated one.

#include <pthread.h>
#include <semaphore.h>
#include <sys/time.h>
#include <sys/timex.h>
#include <threads.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "sim/Clock.h"
#include "sim/HostTime.h"
#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

using sim::Clock;
using sim::fromTimespec;
using sim::HostTime;
using sim::Nanoseconds;
using sim::toTimespec;

namespace {

enum class Simulated { None, Wall, Monotonic, Boot };

Simulated simulatedBy(clockid_t clock) {
    if (HostTime::isActive())
        return Simulated::None;
    switch (clock) {
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_COARSE: return Simulated::Wall;
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_COARSE:
    case CLOCK_MONOTONIC_RAW: return Simulated::Monotonic;
    case CLOCK_BOOTTIME: return Simulated::Boot;
    default: return Simulated::None;
    }
}

Nanoseconds simulatedNow(Simulated clock) {
    switch (clock) {
    case Simulated::Wall: return Clock::get().wall();
    case Simulated::Boot: return Clock::get().boot();
    case Simulated::Monotonic:
    case Simulated::None: break;
    }
    return Clock::get().monotonic();
}

bool isValid(const timespec& time) { return time.tv_nsec >= 0 && time.tv_nsec < 1'000'000'000; }

/// A deadline on a simulated clock as one on the host's clock of the same name. One that the real
/// call has to refuse stays as it is.
timespec hostDeadline(clockid_t clock, const timespec& deadline) {
    const Simulated simulated = simulatedBy(clock);
    if (simulated == Simulated::None || Clock::get().isHosts() || !isValid(deadline))
        return deadline;
    const Nanoseconds until = fromTimespec(deadline);
    const Nanoseconds now = simulatedNow(simulated);
    timespec reading{};  // last: what comes in between makes a wait longer, never shorter
    SIM_REAL(clock_gettime)(clock, &reading);
    const Nanoseconds hostNow = fromTimespec(reading);
    if (until <= now)
        return reading;
    return toTimespec(
        hostNow + std::min(Clock::get().realDuration(until - now), Nanoseconds::max() - hostNow));
}

/// The clock that a condition's deadlines are read on. It was chosen when the condition was made,
/// and glibc keeps it in this bit.
clockid_t clockOf(const pthread_cond_t* condition) {
    constexpr unsigned OnMonotonicClock = 2;
    const unsigned state = __atomic_load_n(&condition->__data.__wrefs, __ATOMIC_RELAXED);
    return state & OnMonotonicClock ? CLOCK_MONOTONIC : CLOCK_REALTIME;
}

int setWall(Nanoseconds sinceEpoch) {
    if (sim::failsByFault("clock_settime"))
        return -1;
    const sim::Terminal* const terminal = sim::Terminal::current();
    if (!terminal || terminal->isInherited())
        return sim::failWith(EPERM);
    Clock::get().setWall(sinceEpoch);
    return 0;
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) noexcept {
    const Simulated simulated = simulatedBy(clock);
    if (simulated == Simulated::None)
        return SIM_REAL(clock_gettime)(clock, now);
    *now = toTimespec(simulatedNow(simulated));
    return 0;
}

int gettimeofday(timeval* now, void* zone) noexcept {
    if (HostTime::isActive())
        return SIM_REAL(gettimeofday)(now, zone);
    const timespec time = toTimespec(Clock::get().wall());
    now->tv_sec = time.tv_sec;
    now->tv_usec = time.tv_nsec / 1000;
    return 0;
}

time_t time(time_t* result) noexcept {
    if (HostTime::isActive())
        return SIM_REAL(time)(result);
    const time_t now = toTimespec(Clock::get().wall()).tv_sec;
    if (result)
        *result = now;
    return now;
}

int timespec_get(timespec* now, int base) noexcept {
    return base == TIME_UTC && clock_gettime(CLOCK_REALTIME, now) == 0 ? base : 0;
}

int clock_settime(clockid_t clock, const timespec* now) noexcept {
    if (clock != CLOCK_REALTIME || !isValid(*now))
        return sim::failWith(EINVAL);
    return setWall(fromTimespec(*now));
}

/// Of former headers.
int stime(const time_t* now) { return setWall(std::chrono::seconds(*now)); }

int settimeofday(const timeval* now, const struct timezone*) noexcept {
    if (!now)
        return sim::failWith(EPERM);
    if (now->tv_usec < 0 || now->tv_usec >= 1'000'000)
        return sim::failWith(EINVAL);
    return setWall(std::chrono::seconds(now->tv_sec) + std::chrono::microseconds(now->tv_usec));
}

int adjtimex(timex* adjustment) noexcept {
    return adjustment->modes == 0 ? SIM_REAL(adjtimex)(adjustment) : sim::failWith(EPERM);
}
int ntp_adjtime(timex* adjustment) noexcept { return adjtimex(adjustment); }
int clock_adjtime(clockid_t clock, timex* adjustment) noexcept {
    return adjustment->modes == 0 ? SIM_REAL(clock_adjtime)(clock, adjustment)
                                  : sim::failWith(EPERM);
}
int adjtime(const timeval* change, timeval* left) noexcept {
    return change ? sim::failWith(EPERM) : SIM_REAL(adjtime)(change, left);
}

int nanosleep(const timespec* duration, timespec* left) {
    if (HostTime::isActive() || !isValid(*duration) || duration->tv_sec < 0)
        return SIM_REAL(nanosleep)(duration, left);
    const timespec real = toTimespec(Clock::get().realDuration(fromTimespec(*duration)));
    timespec realLeft{};
    const int result = SIM_REAL(nanosleep)(&real, &realLeft);
    if (result != 0 && left)
        *left = toTimespec(Clock::get().simulatedDuration(fromTimespec(realLeft)));
    return result;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left) {
    if (simulatedBy(clock) == Simulated::None || !isValid(*time))
        return SIM_REAL(clock_nanosleep)(clock, flags, time, left);
    if (flags & TIMER_ABSTIME) {
        const timespec deadline = hostDeadline(clock, *time);
        return SIM_REAL(clock_nanosleep)(clock, flags, &deadline, left);
    }
    return nanosleep(time, left) == 0 ? 0 : errno;
}

int usleep(useconds_t microseconds) {
    const timespec duration = toTimespec(std::chrono::microseconds(microseconds));
    return nanosleep(&duration, nullptr);
}

unsigned sleep(unsigned seconds) {
    timespec duration{};
    duration.tv_sec = static_cast<time_t>(seconds);
    timespec left{};
    return nanosleep(&duration, &left) == 0 ? 0 : static_cast<unsigned>(left.tv_sec);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const timespec* until) {
    const timespec deadline = hostDeadline(clockOf(condition), *until);
    return SIM_REAL(pthread_cond_timedwait)(condition, mutex, &deadline);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* until) {
    const timespec deadline = hostDeadline(clock, *until);
    return SIM_REAL(pthread_cond_clockwait)(condition, mutex, clock, &deadline);
}

int pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec* until) noexcept {
    const timespec deadline = hostDeadline(CLOCK_REALTIME, *until);
    return SIM_REAL(pthread_mutex_timedlock)(mutex, &deadline);
}

int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock,
                            const timespec* until) noexcept {
    const timespec deadline = hostDeadline(clock, *until);
    return SIM_REAL(pthread_mutex_clocklock)(mutex, clock, &deadline);
}

int pthread_rwlock_timedrdlock(pthread_rwlock_t* lock, const timespec* until) noexcept {
    const timespec deadline = hostDeadline(CLOCK_REALTIME, *until);
    return SIM_REAL(pthread_rwlock_timedrdlock)(lock, &deadline);
}
int pthread_rwlock_timedwrlock(pthread_rwlock_t* lock, const timespec* until) noexcept {
    const timespec deadline = hostDeadline(CLOCK_REALTIME, *until);
    return SIM_REAL(pthread_rwlock_timedwrlock)(lock, &deadline);
}
int pthread_rwlock_clockrdlock(pthread_rwlock_t* lock, clockid_t clock,
                               const timespec* until) noexcept {
    const timespec deadline = hostDeadline(clock, *until);
    return SIM_REAL(pthread_rwlock_clockrdlock)(lock, clock, &deadline);
}
int pthread_rwlock_clockwrlock(pthread_rwlock_t* lock, clockid_t clock,
                               const timespec* until) noexcept {
    const timespec deadline = hostDeadline(clock, *until);
    return SIM_REAL(pthread_rwlock_clockwrlock)(lock, clock, &deadline);
}

int sem_timedwait(sem_t* semaphore, const timespec* until) {
    const timespec deadline = hostDeadline(CLOCK_REALTIME, *until);
    return SIM_REAL(sem_timedwait)(semaphore, &deadline);
}
int sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* until) {
    const timespec deadline = hostDeadline(clock, *until);
    return SIM_REAL(sem_clockwait)(semaphore, clock, &deadline);
}

// Without a deadline these two wait for ever.
int pthread_timedjoin_np(pthread_t thread, void** result, const timespec* until) {
    const timespec deadline = until ? hostDeadline(CLOCK_REALTIME, *until) : timespec{};
    return SIM_REAL(pthread_timedjoin_np)(thread, result, until ? &deadline : nullptr);
}
int pthread_clockjoin_np(pthread_t thread, void** result, clockid_t clock, const timespec* until) {
    const timespec deadline = until ? hostDeadline(clock, *until) : timespec{};
    return SIM_REAL(pthread_clockjoin_np)(thread, result, clock, until ? &deadline : nullptr);
}

int cnd_timedwait(cnd_t* condition, mtx_t* mutex, const timespec* until) {
    const timespec deadline = hostDeadline(CLOCK_REALTIME, *until);
    return SIM_REAL(cnd_timedwait)(condition, mutex, &deadline);
}
int mtx_timedlock(mtx_t* mutex, const timespec* until) {
    const timespec deadline = hostDeadline(CLOCK_REALTIME, *until);
    return SIM_REAL(mtx_timedlock)(mutex, &deadline);
}
int thrd_sleep(const timespec* duration, timespec* left) {
    constexpr int Interrupted = -1, Failed = -2;
    if (nanosleep(duration, left) == 0)
        return 0;
    return errno == EINTR ? Interrupted : Failed;
}

}  // extern "C"
