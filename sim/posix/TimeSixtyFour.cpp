// Where time_t can have 32 or 64 bits, a program built for 64 bits calls these spellings. Records
// are converted and the calls for 32 bits do the work: the terminal's own time has 32.

#include <features.h>

#if __TIMESIZE == 32

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <threads.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <ctime>
#include <limits>

#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

namespace {

struct Timespec64 {
    int64_t seconds;
    int32_t nanoseconds;
    int32_t padding;
};

struct Timeval64 {
    int64_t seconds;
    int64_t microseconds;
};

/// What 32 bits cannot hold is the most or least that they can.
int32_t narrowed(int64_t value) {
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(std::clamp<int64_t>(value, Limits::min(), Limits::max()));
}

timespec narrowed(const Timespec64& time) { return {narrowed(time.seconds), time.nanoseconds}; }
timeval narrowed(const Timeval64& time) {
    return {narrowed(time.seconds), narrowed(time.microseconds)};
}
Timespec64 widened(const timespec& time) { return {time.tv_sec, time.tv_nsec, 0}; }
Timeval64 widened(const timeval& time) { return {time.tv_sec, time.tv_usec}; }

/// One or two records that a program gives, or none.
template <class Narrow> class Given {
public:
    template <class Wide> explicit Given(const Wide* wide, int count = 1) : isThere(wide) {
        for (int i = 0; isThere && i < count; ++i)
            values[i] = narrowed(wide[i]);
    }
    Narrow* get() { return isThere ? values : nullptr; }

private:
    const bool isThere;
    Narrow values[2]{};
};

using Time = Given<timespec>;

template <class Narrow, class Wide> void handBack(const Narrow& value, Wide* wide) {
    if (wide)
        *wide = widened(value);
}

/// The real call of a name that the headers do not declare for 32 bits.
template <class Call, class... Arguments> int callReal(const char* name, Arguments... arguments) {
    return reinterpret_cast<Call*>(sim::nextDefinition(name))(arguments...);
}

/// Has the real call fill in the record, whose layout is not known here.
template <class Call> int lookAt(int folder, const char* path, Call call) {
    const sim::Route found = sim::route("stat", folder, path, false);
    switch (found.kind) {
    case sim::Route::Host: return call(folder, path);
    case sim::Route::File: return call(AT_FDCWD, found.place.hostPath.c_str());
    case sim::Route::Node: return call(AT_FDCWD, "/dev/null");
    case sim::Route::Nothing: break;
    }
    return sim::failWith(found.place.error);
}

/// Asking is the host's to answer. The record begins with what is to be set.
int adjust(unsigned* adjustment, const char* name) {
    return *adjustment == 0 ? callReal<int(unsigned*)>(name, adjustment) : sim::failWith(EPERM);
}

}  // namespace

extern "C" {

int __clock_gettime64(clockid_t clock, Timespec64* now) {
    timespec time{};
    if (clock_gettime(clock, &time) != 0)
        return -1;
    handBack(time, now);
    return 0;
}
int __gettimeofday64(Timeval64* now, void* zone) {
    timeval time{};
    gettimeofday(&time, zone);
    handBack(time, now);
    return 0;
}
int64_t __time64(int64_t* result) {
    const int64_t now = time(nullptr);
    if (result)
        *result = now;
    return now;
}
int __clock_settime64(clockid_t clock, const Timespec64* now) {
    return clock_settime(clock, Time(now).get());
}
int __settimeofday64(const Timeval64* now, const struct timezone* zone) {
    return settimeofday(Given<timeval>(now).get(), zone);
}
int ___adjtimex64(unsigned* adjustment) { return adjust(adjustment, "___adjtimex64"); }
int __clock_adjtime64(clockid_t, unsigned* adjustment) {
    return adjust(adjustment, "___adjtimex64");
}
int __adjtime64(const Timeval64* change, Timeval64* left) {
    return change ? sim::failWith(EPERM)
                  : callReal<int(const Timeval64*, Timeval64*)>("__adjtime64", change, left);
}

int __nanosleep64(const Timespec64* duration, Timespec64* left) {
    timespec rest{};
    const int result = nanosleep(Time(duration).get(), &rest);
    if (result != 0)
        handBack(rest, left);
    return result;
}
int __clock_nanosleep_time64(clockid_t clock, int flags, const Timespec64* time, Timespec64* left) {
    timespec rest{};
    const int result = clock_nanosleep(clock, flags, Time(time).get(), &rest);
    if (result != 0 && !(flags & TIMER_ABSTIME))
        handBack(rest, left);
    return result;
}
int __pthread_cond_timedwait64(pthread_cond_t* condition, pthread_mutex_t* mutex,
                               const Timespec64* until) {
    return pthread_cond_timedwait(condition, mutex, Time(until).get());
}
int __pthread_cond_clockwait64(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                               const Timespec64* until) {
    return pthread_cond_clockwait(condition, mutex, clock, Time(until).get());
}
int __pthread_mutex_timedlock64(pthread_mutex_t* mutex, const Timespec64* until) {
    return pthread_mutex_timedlock(mutex, Time(until).get());
}
int __pthread_mutex_clocklock64(pthread_mutex_t* mutex, clockid_t clock, const Timespec64* until) {
    return pthread_mutex_clocklock(mutex, clock, Time(until).get());
}
int __pthread_rwlock_timedrdlock64(pthread_rwlock_t* lock, const Timespec64* until) {
    return pthread_rwlock_timedrdlock(lock, Time(until).get());
}
int __pthread_rwlock_timedwrlock64(pthread_rwlock_t* lock, const Timespec64* until) {
    return pthread_rwlock_timedwrlock(lock, Time(until).get());
}
int __pthread_rwlock_clockrdlock64(pthread_rwlock_t* lock, clockid_t clock,
                                   const Timespec64* until) {
    return pthread_rwlock_clockrdlock(lock, clock, Time(until).get());
}
int __pthread_rwlock_clockwrlock64(pthread_rwlock_t* lock, clockid_t clock,
                                   const Timespec64* until) {
    return pthread_rwlock_clockwrlock(lock, clock, Time(until).get());
}
int __sem_timedwait64(sem_t* semaphore, const Timespec64* until) {
    return sem_timedwait(semaphore, Time(until).get());
}
int __sem_clockwait64(sem_t* semaphore, clockid_t clock, const Timespec64* until) {
    return sem_clockwait(semaphore, clock, Time(until).get());
}
int __pthread_timedjoin_np64(pthread_t thread, void** result, const Timespec64* until) {
    return pthread_timedjoin_np(thread, result, Time(until).get());
}
int __pthread_clockjoin_np64(pthread_t thread, void** result, clockid_t clock,
                             const Timespec64* until) {
    return pthread_clockjoin_np(thread, result, clock, Time(until).get());
}
int __cnd_timedwait64(cnd_t* condition, mtx_t* mutex, const Timespec64* until) {
    return cnd_timedwait(condition, mutex, Time(until).get());
}
int __mtx_timedlock64(mtx_t* mutex, const Timespec64* until) {
    return mtx_timedlock(mutex, Time(until).get());
}
int __thrd_sleep64(const Timespec64* duration, Timespec64* left) {
    timespec rest{};
    const int result = thrd_sleep(Time(duration).get(), &rest);
    if (result != 0)
        handBack(rest, left);
    return result;
}
int __timespec_get64(Timespec64* now, int base) {
    timespec time{};
    const int result = timespec_get(&time, base);
    if (result != 0)
        handBack(time, now);
    return result;
}

int __ppoll64(pollfd* files, nfds_t count, const Timespec64* timeout, const sigset_t* mask) {
    return ppoll(files, count, Time(timeout).get(), mask);
}
int __epoll_pwait2_time64(int fd, epoll_event* events, int count, const Timespec64* timeout,
                          const sigset_t* mask) {
    return epoll_pwait2(fd, events, count, Time(timeout).get(), mask);
}
int __select64(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
               Timeval64* timeout) {
    Given<timeval> rest(timeout);
    const int result = select(count, readable, writable, exceptional, rest.get());
    if (timeout)
        handBack(*rest.get(), timeout);
    return result;
}
int __pselect64(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                const Timespec64* timeout, const sigset_t* mask) {
    return pselect(count, readable, writable, exceptional, Time(timeout).get(), mask);
}

int __ioctl_time64(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return ioctl(fd, request, argument);
}
int __fcntl_time64(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return fcntl64(fd, command, argument);
}

// The records of the program pass as they are.
ssize_t __sendmsg64(int fd, const msghdr* message, int flags) {
    return sendmsg(fd, message, flags);
}
int __sendmmsg64(int fd, mmsghdr* messages, unsigned count, int flags) {
    return sendmmsg(fd, messages, count, flags);
}

int __fstatat64_time64(int folder, const char* path, void* status, int flags) {
    return lookAt(folder, path, [=](int at, const char* host) {
        return callReal<int(int, const char*, void*, int)>("__fstatat64_time64", at, host, status,
                                                           flags);
    });
}
int __stat64_time64(const char* path, void* status) {
    return __fstatat64_time64(AT_FDCWD, path, status, 0);
}
int __lstat64_time64(const char* path, void* status) {
    return __fstatat64_time64(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}
int __utimensat64(int folder, const char* path, const Timespec64 times[2], int flags) {
    return utimensat(folder, path, Time(times, 2).get(), flags);
}
int __utimes64(const char* path, const Timeval64 times[2]) {
    return utimes(path, Given<timeval>(times, 2).get());
}
int __lutimes64(const char* path, const Timeval64 times[2]) {
    return lutimes(path, Given<timeval>(times, 2).get());
}
int __futimesat64(int folder, const char* path, const Timeval64 times[2]) {
    return futimesat(folder, path, Given<timeval>(times, 2).get());
}
int __utime64(const char* path, const int64_t times[2]) {
    if (!times)
        return utime(path, nullptr);
    const utimbuf narrow{narrowed(times[0]), narrowed(times[1])};
    return utime(path, &narrow);
}

}  // extern "C"

#endif
