// What is done with an open descriptor.

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sim/Cancellation.h"
#include "sim/posix/Descriptors.h"
#include "sim/posix/Interfaces.h"
#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

using sim::Descriptors;
using sim::failsByFault;

namespace {

/// The operation of an open of the terminal behind a call, or the real call.
template <class Operation, class Real>
auto onDescriptor(const char* call, int fd, Operation operation, Real realCall)
    -> decltype(realCall()) {
    const auto file = Descriptors::get().find(fd);
    if (!file)
        return realCall();
    return failsByFault(call, file->path()) ? -1 : operation(*file);
}

/// What fcntl() is given after the command may be anything.
int control(int fd, int command, void* argument) {
    const int result = SIM_REAL(fcntl)(fd, command, argument);
    const bool duplicates = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    return duplicates ? Descriptors::get().duplicate(fd, result) : result;
}

/// A descriptor that is replaced is closed first.
void giveUp(int fd, int replacement) {
    if (fd != replacement && SIM_REAL(fcntl)(replacement, F_GETFD) >= 0)
        Descriptors::get().take(fd);
}

}  // namespace

extern "C" {

int fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return control(fd, command, argument);
}

int fcntl64(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return control(fd, command, argument);
}

int dup(int fd) noexcept { return Descriptors::get().duplicate(fd, SIM_REAL(dup)(fd)); }

int dup2(int fd, int wanted) noexcept {
    if (Descriptors::get().isKept(wanted))
        return sim::failWith(EBUSY);
    giveUp(wanted, fd);
    const int result = SIM_REAL(dup2)(fd, wanted);
    return fd == wanted ? result : Descriptors::get().duplicate(fd, result);
}

int dup3(int fd, int wanted, int flags) noexcept {
    if (Descriptors::get().isKept(wanted))
        return sim::failWith(EBUSY);
    giveUp(wanted, fd);
    return Descriptors::get().duplicate(fd, SIM_REAL(dup3)(fd, wanted, flags));
}

int close(int fd) {
    if (Descriptors::get().isKept(fd))
        return sim::failWith(EBADF);
    const auto file = Descriptors::get().take(fd);
    const int result = SIM_REAL(close)(fd);
    return file && failsByFault("close", file->path()) ? -1 : result;
}

/// In pieces: the simulator's own descriptors lie between, and the terminal's are closed one by
/// one.
int close_range(unsigned first, unsigned last, int flags) noexcept {
    const bool closes = (static_cast<unsigned>(flags) & CLOSE_RANGE_CLOEXEC) == 0;
    const unsigned end = std::min<unsigned>(last, Descriptors::Most - 1);
    for (unsigned at = first; closes && first <= last && at <= end; ++at) {
        const auto fd = static_cast<int>(at);
        if (!Descriptors::get().isKept(fd) && !Descriptors::get().has(fd))
            continue;
        const bool isRight = at == first || SIM_REAL(close_range)(first, at - 1, flags) == 0;
        if (!isRight)
            return -1;
        ::close(fd);
        first = at + 1;
    }
    return closes && first == last + 1 ? 0 : SIM_REAL(close_range)(first, last, flags);
}
void closefrom(int first) noexcept {
    close_range(static_cast<unsigned>(std::max(first, 0)), ~0U, 0);
}

ssize_t read(int fd, void* buffer, size_t size) {
    return onDescriptor(
        "read", fd, [=](sim::OpenFile& file) { return file.read(buffer, size); },
        [=] { return SIM_REAL(read)(fd, buffer, size); });
}

ssize_t __read_chk(int fd, void* buffer, size_t size, size_t bufferSize) {
    if (size > bufferSize)
        abort();
    return ::read(fd, buffer, size);
}

ssize_t write(int fd, const void* data, size_t size) {
    return onDescriptor(
        "write", fd, [=](sim::OpenFile& file) { return file.write(data, size); },
        [=] { return SIM_REAL(write)(fd, data, size); });
}

ssize_t readv(int fd, const iovec* parts, int count) {
    return onDescriptor(
        "read", fd,
        [=](sim::OpenFile& file) {
            return count > 0 ? file.read(parts[0].iov_base, parts[0].iov_len) : 0;
        },
        [=] { return SIM_REAL(readv)(fd, parts, count); });
}

ssize_t writev(int fd, const iovec* parts, int count) {
    return onDescriptor(
        "write", fd,
        [=](sim::OpenFile& file) {
            std::string all;
            for (int i = 0; i < count; ++i)
                all.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
            return file.write(all.data(), all.size());
        },
        [=] { return SIM_REAL(writev)(fd, parts, count); });
}

int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const sim::CancellationOff uncancelled;
    if (!Descriptors::get().has(fd) && sim::isInterfaceRequest(request))
        return sim::interfaceRequest(fd, request, argument);
    return onDescriptor(
        "ioctl", fd, [=](sim::OpenFile& file) { return file.ioctl(request, argument); },
        [=] { return SIM_REAL(ioctl)(fd, request, argument); });
}

int tcgetattr(int fd, termios* settings) noexcept {
    return onDescriptor(
        "tcgetattr", fd, [=](sim::OpenFile& file) { return file.getAttributes(*settings); },
        [=] { return SIM_REAL(tcgetattr)(fd, settings); });
}

int tcsetattr(int fd, int when, const termios* settings) noexcept {
    const sim::CancellationOff uncancelled;
    return onDescriptor(
        "tcsetattr", fd, [=](sim::OpenFile& file) { return file.setAttributes(when, *settings); },
        [=] { return SIM_REAL(tcsetattr)(fd, when, settings); });
}

int tcflush(int fd, int queue) noexcept {
    return onDescriptor(
        "tcflush", fd, [=](sim::OpenFile& file) { return file.flush(queue); },
        [=] { return SIM_REAL(tcflush)(fd, queue); });
}

int tcsendbreak(int fd, int duration) noexcept {
    return onDescriptor(
        "tcsendbreak", fd, [=](sim::OpenFile& file) { return file.sendBreak(duration); },
        [=] { return SIM_REAL(tcsendbreak)(fd, duration); });
}

int tcdrain(int fd) {
    const sim::CancellationOff uncancelled;
    return onDescriptor(
        "tcdrain", fd, [=](sim::OpenFile& file) { return file.drain(); },
        [=] { return SIM_REAL(tcdrain)(fd); });
}

}  // extern "C"
