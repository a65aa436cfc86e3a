// Opening: every spelling of open and fopen that a compiler or the C++ library may choose.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "sim/Cancellation.h"
#include "sim/posix/Descriptors.h"
#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

using sim::Route;

namespace {

/// Cancellation is off while a device is opened, so that no descriptor is lost half way.
int openNode(const Route& found, int flags) {
    const sim::CancellationOff uncancelled;
    const auto file = found.place.device->open(found.path, flags);
    return file ? sim::Descriptors::get().add(file) : -1;
}

int openAt(int folder, const char* path, int flags, mode_t mode) {
    const Route found = sim::route("open", folder, path, sim::opensForWriting(flags));
    switch (found.kind) {
    case Route::Host: return SIM_REAL(openat)(folder, path, flags, mode);
    case Route::File: return SIM_REAL(openat)(AT_FDCWD, found.place.hostPath.c_str(), flags, mode);
    case Route::Node: return openNode(found, flags);
    case Route::Nothing: break;
    }
    return sim::failWith(found.place.error);
}

mode_t creationMode(int flags, va_list arguments) {
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? static_cast<mode_t>(va_arg(arguments, unsigned)) : 0;
}

int streamFlags(const char* mode) {
    const bool both = strchr(mode, '+') != nullptr;
    const int closing = strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0;
    switch (*mode) {
    case 'r': return (both ? O_RDWR : O_RDONLY) | closing;
    case 'w': return (both ? O_RDWR : O_WRONLY) | O_TRUNC | closing;
    default: return (both ? O_RDWR : O_WRONLY) | O_APPEND | closing;
    }
}

// A stream on a device node goes through the interposed calls too; libc's own would not.
int cookieDescriptor(void* cookie) { return static_cast<int>(reinterpret_cast<intptr_t>(cookie)); }

ssize_t cookieRead(void* cookie, char* buffer, size_t size) {
    return ::read(cookieDescriptor(cookie), buffer, size);
}

ssize_t cookieWrite(void* cookie, const char* data, size_t size) {
    const ssize_t written = ::write(cookieDescriptor(cookie), data, size);
    return written < 0 ? 0 : written;  // the way a cookie reports an error
}

int cookieClose(void* cookie) { return ::close(cookieDescriptor(cookie)); }

FILE* streamOn(int descriptor, const char* mode) {
    if (descriptor < 0)
        return nullptr;
    const cookie_io_functions_t functions{cookieRead, cookieWrite, nullptr, cookieClose};
    void* const cookie = reinterpret_cast<void*>(static_cast<intptr_t>(descriptor));
    FILE* const stream = fopencookie(cookie, mode, functions);
    if (stream)
        stream->_fileno = descriptor;  // what fileno() tells: the C++ streams read and write there
    return stream;
}

/// The stream for a descriptor just opened, which is closed again when there can be none.
FILE* streamOnNew(int descriptor, const char* mode) {
    FILE* const stream = streamOn(descriptor, mode);
    if (descriptor >= 0 && !stream)
        ::close(descriptor);
    return stream;
}

bool writes(const char* mode) { return *mode != 'r' || strchr(mode, '+'); }

template <class RealOpen> FILE* openStream(const char* path, const char* mode, RealOpen realOpen) {
    const Route found = sim::route("fopen", AT_FDCWD, path, writes(mode));
    switch (found.kind) {
    case Route::Host: return realOpen(path, mode);
    case Route::File: return realOpen(found.place.hostPath.c_str(), mode);
    case Route::Node: return streamOnNew(openNode(found, streamFlags(mode)), mode);
    case Route::Nothing: break;
    }
    errno = found.place.error;
    return nullptr;
}

/// A stream cannot be turned into one on a device node: to libc its descriptor is a file's.
template <class RealReopen>
FILE* reopenStream(const char* path, const char* mode, FILE* stream, RealReopen realReopen) {
    const Route found = sim::route("fopen", AT_FDCWD, path, writes(mode));
    switch (found.kind) {
    case Route::Host: return realReopen(path, mode, stream);
    case Route::File: return realReopen(found.place.hostPath.c_str(), mode, stream);
    case Route::Node:
    case Route::Nothing: break;
    }
    fclose(stream);  // as when the real call fails
    errno = found.kind == Route::Node ? ENXIO : found.place.error;
    return nullptr;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = creationMode(flags, arguments);
    va_end(arguments);
    return openAt(AT_FDCWD, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = creationMode(flags, arguments);
    va_end(arguments);
    return openAt(AT_FDCWD, path, flags | O_LARGEFILE, mode);
}

int openat(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = creationMode(flags, arguments);
    va_end(arguments);
    return openAt(folder, path, flags, mode);
}

int openat64(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = creationMode(flags, arguments);
    va_end(arguments);
    return openAt(folder, path, flags | O_LARGEFILE, mode);
}

// What a fortified program calls when it gives no mode.
int __open_2(const char* path, int flags) { return openAt(AT_FDCWD, path, flags, 0); }
int __open64_2(const char* path, int flags) {
    return openAt(AT_FDCWD, path, flags | O_LARGEFILE, 0);
}
int __openat_2(int folder, const char* path, int flags) { return openAt(folder, path, flags, 0); }
int __openat64_2(int folder, const char* path, int flags) {
    return openAt(folder, path, flags | O_LARGEFILE, 0);
}

int creat(const char* path, mode_t mode) {
    return openAt(AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC, mode);
}
int creat64(const char* path, mode_t mode) {
    return openAt(AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC | O_LARGEFILE, mode);
}

FILE* fopen(const char* path, const char* mode) { return openStream(path, mode, SIM_REAL(fopen)); }
FILE* fopen64(const char* path, const char* mode) {
    return openStream(path, mode, SIM_REAL(fopen64));
}

FILE* freopen(const char* path, const char* mode, FILE* stream) {
    return reopenStream(path, mode, stream, SIM_REAL(freopen));
}
FILE* freopen64(const char* path, const char* mode, FILE* stream) {
    return reopenStream(path, mode, stream, SIM_REAL(freopen64));
}

// Names of former headers.
int __open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = creationMode(flags, arguments);
    va_end(arguments);
    return openAt(AT_FDCWD, path, flags, mode);
}
int __open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = creationMode(flags, arguments);
    va_end(arguments);
    return openAt(AT_FDCWD, path, flags | O_LARGEFILE, mode);
}
FILE* _IO_fopen(const char* path, const char* mode) { return fopen(path, mode); }

FILE* fdopen(int descriptor, const char* mode) noexcept {
    return sim::Descriptors::get().has(descriptor) ? streamOn(descriptor, mode)
                                                   : SIM_REAL(fdopen)(descriptor, mode);
}

}  // extern "C"
