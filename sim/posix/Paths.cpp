// Calls that look at or change a path without opening it. Device nodes have no host file: they can
// be asked for and looked at, not changed. Each call is its own form with an open folder (the "at"
// calls) where there is one.

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

using sim::Route;

namespace {

constexpr bool Looks = false;
constexpr bool Changes = true;

/// Does `call` on the path's place on the host. A node has `onNode()` answer.
template <class Result, class Call, class OnNode>
Result onPath(const char* name, int folder, const char* path, bool changes, Result failure,
              Call call, OnNode onNode) {
    const Route found = sim::route(name, folder, path, changes);
    switch (found.kind) {
    case Route::Host: return call(folder, path);
    case Route::File: return call(AT_FDCWD, found.place.hostPath.c_str());
    case Route::Node: return onNode();
    case Route::Nothing: break;
    }
    errno = found.place.error;
    return failure;
}

template <class Call> int changePath(const char* name, int folder, const char* path, Call call) {
    return onPath(name, folder, path, Changes, -1, call, [] { return sim::failWith(EPERM); });
}

template <class Call> int changeBoth(const char* name, int fromFolder, const char* from,
                                     int toFolder, const char* to, Call call) {
    return changePath(name, fromFolder, from, [=](int hostFolder, const char* hostFrom) {
        return changePath(name, toFolder, to, [=](int hostToFolder, const char* hostTo) {
            return call(hostFolder, hostFrom, hostToFolder, hostTo);
        });
    });
}

template <class Call> int lookAt(const char* name, int folder, const char* path, Call call) {
    return onPath(name, folder, path, Looks, -1, call,
                  [=] { return call(AT_FDCWD, "/dev/null"); });  // a character device like any
}

}  // namespace

extern "C" {

int fstatat(int folder, const char* path, struct stat* status, int flags) noexcept {
    return lookAt("stat", folder, path, [=](int at, const char* host) {
        return SIM_REAL(fstatat)(at, host, status, flags);
    });
}
int fstatat64(int folder, const char* path, struct stat64* status, int flags) noexcept {
    return lookAt("stat", folder, path, [=](int at, const char* host) {
        return SIM_REAL(fstatat64)(at, host, status, flags);
    });
}
int statx(int folder, const char* path, int flags, unsigned mask, struct statx* status) noexcept {
    return lookAt("stat", folder, path, [=](int at, const char* host) {
        return SIM_REAL(statx)(at, host, flags, mask, status);
    });
}
int stat(const char* path, struct stat* status) noexcept {
    return fstatat(AT_FDCWD, path, status, 0);
}
int stat64(const char* path, struct stat64* status) noexcept {
    return fstatat64(AT_FDCWD, path, status, 0);
}
int lstat(const char* path, struct stat* status) noexcept {
    return fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}
int lstat64(const char* path, struct stat64* status) noexcept {
    return fstatat64(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

int statfs(const char* path, struct statfs* status) noexcept {
    return lookAt("statfs", AT_FDCWD, path,
                  [=](int, const char* host) { return SIM_REAL(statfs)(host, status); });
}
int statfs64(const char* path, struct statfs64* status) noexcept {
    return lookAt("statfs", AT_FDCWD, path,
                  [=](int, const char* host) { return SIM_REAL(statfs64)(host, status); });
}
int statvfs(const char* path, struct statvfs* status) noexcept {
    return lookAt("statfs", AT_FDCWD, path,
                  [=](int, const char* host) { return SIM_REAL(statvfs)(host, status); });
}
int statvfs64(const char* path, struct statvfs64* status) noexcept {
    return lookAt("statfs", AT_FDCWD, path,
                  [=](int, const char* host) { return SIM_REAL(statvfs64)(host, status); });
}

// What programs built with former headers call; the version of the record goes without saying.
int __xstat(int, const char* path, struct stat* status) noexcept { return stat(path, status); }
int __xstat64(int, const char* path, struct stat64* status) noexcept {
    return stat64(path, status);
}
int __lxstat(int, const char* path, struct stat* status) noexcept { return lstat(path, status); }
int __lxstat64(int, const char* path, struct stat64* status) noexcept {
    return lstat64(path, status);
}
int __fxstatat(int, int folder, const char* path, struct stat* status, int flags) noexcept {
    return fstatat(folder, path, status, flags);
}
int __fxstatat64(int, int folder, const char* path, struct stat64* status, int flags) noexcept {
    return fstatat64(folder, path, status, flags);
}

int faccessat(int folder, const char* path, int mode, int flags) noexcept {
    return onPath(
        "access", folder, path, (mode & W_OK) != 0, -1,
        [=](int at, const char* host) { return SIM_REAL(faccessat)(at, host, mode, flags); },
        [] { return 0; });
}
int access(const char* path, int mode) noexcept { return faccessat(AT_FDCWD, path, mode, 0); }

DIR* opendir(const char* path) {
    return onPath<DIR*>(
        "opendir", AT_FDCWD, path, Looks, nullptr,
        [](int, const char* host) { return SIM_REAL(opendir)(host); },
        []() -> DIR* {
            errno = ENOTDIR;
            return nullptr;
        });
}

int inotify_add_watch(int fd, const char* path, uint32_t events) noexcept {
    return lookAt("inotify_add_watch", AT_FDCWD, path, [=](int, const char* host) {
        return SIM_REAL(inotify_add_watch)(fd, host, events);
    });
}

int chdir(const char* path) noexcept {
    return lookAt("chdir", AT_FDCWD, path,
                  [](int, const char* host) { return SIM_REAL(chdir)(host); });
}

ssize_t readlinkat(int folder, const char* path, char* buffer, size_t size) noexcept {
    return onPath<ssize_t>(
        "readlink", folder, path, Looks, -1,
        [=](int at, const char* host) { return SIM_REAL(readlinkat)(at, host, buffer, size); },
        [] { return sim::failWith(EINVAL); });
}
ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
    return readlinkat(AT_FDCWD, path, buffer, size);
}
ssize_t __readlinkat_chk(int folder, const char* path, char* buffer, size_t size,
                         size_t bufferSize) noexcept {
    if (size > bufferSize)
        abort();
    return readlinkat(folder, path, buffer, size);
}
ssize_t __readlink_chk(const char* path, char* buffer, size_t size, size_t bufferSize) noexcept {
    return __readlinkat_chk(AT_FDCWD, path, buffer, size, bufferSize);
}

int unlinkat(int folder, const char* path, int flags) noexcept {
    return changePath(
        flags & AT_REMOVEDIR ? "rmdir" : "unlink", folder, path,
        [=](int at, const char* host) { return SIM_REAL(unlinkat)(at, host, flags); });
}
int unlink(const char* path) noexcept { return unlinkat(AT_FDCWD, path, 0); }
int rmdir(const char* path) noexcept { return unlinkat(AT_FDCWD, path, AT_REMOVEDIR); }
int remove(const char* path) noexcept {
    return changePath("unlink", AT_FDCWD, path,
                      [](int, const char* host) { return SIM_REAL(remove)(host); });
}

int mkdirat(int folder, const char* path, mode_t mode) noexcept {
    return changePath("mkdir", folder, path,
                      [=](int at, const char* host) { return SIM_REAL(mkdirat)(at, host, mode); });
}
int mkdir(const char* path, mode_t mode) noexcept { return mkdirat(AT_FDCWD, path, mode); }

int mknodat(int folder, const char* path, mode_t mode, dev_t device) noexcept {
    return changePath("mknod", folder, path, [=](int at, const char* host) {
        return SIM_REAL(mknodat)(at, host, mode, device);
    });
}
int mknod(const char* path, mode_t mode, dev_t device) noexcept {
    return mknodat(AT_FDCWD, path, mode, device);
}
int __xmknodat(int, int folder, const char* path, mode_t mode, dev_t* device) noexcept {
    return mknodat(folder, path, mode, *device);
}
int __xmknod(int, const char* path, mode_t mode, dev_t* device) noexcept {
    return mknodat(AT_FDCWD, path, mode, *device);
}
int mkfifoat(int folder, const char* path, mode_t mode) noexcept {
    return changePath("mkfifo", folder, path,
                      [=](int at, const char* host) { return SIM_REAL(mkfifoat)(at, host, mode); });
}
int mkfifo(const char* path, mode_t mode) noexcept { return mkfifoat(AT_FDCWD, path, mode); }

int fchmodat(int folder, const char* path, mode_t mode, int flags) noexcept {
    return changePath("chmod", folder, path, [=](int at, const char* host) {
        return SIM_REAL(fchmodat)(at, host, mode, flags);
    });
}
int chmod(const char* path, mode_t mode) noexcept { return fchmodat(AT_FDCWD, path, mode, 0); }

int fchownat(int folder, const char* path, uid_t user, gid_t group, int flags) noexcept {
    return changePath("chown", folder, path, [=](int at, const char* host) {
        return SIM_REAL(fchownat)(at, host, user, group, flags);
    });
}
int chown(const char* path, uid_t user, gid_t group) noexcept {
    return fchownat(AT_FDCWD, path, user, group, 0);
}
int lchown(const char* path, uid_t user, gid_t group) noexcept {
    return fchownat(AT_FDCWD, path, user, group, AT_SYMLINK_NOFOLLOW);
}

int utimensat(int folder, const char* path, const timespec times[2], int flags) noexcept {
    return changePath("utimes", folder, path, [=](int at, const char* host) {
        return SIM_REAL(utimensat)(at, host, times, flags);
    });
}
int utimes(const char* path, const timeval times[2]) noexcept {
    return changePath("utimes", AT_FDCWD, path,
                      [=](int, const char* host) { return SIM_REAL(utimes)(host, times); });
}
int lutimes(const char* path, const timeval times[2]) noexcept {
    return changePath("utimes", AT_FDCWD, path,
                      [=](int, const char* host) { return SIM_REAL(lutimes)(host, times); });
}
int futimesat(int folder, const char* path, const timeval times[2]) noexcept {
    return changePath("utimes", folder, path, [=](int at, const char* host) {
        return SIM_REAL(futimesat)(at, host, times);
    });
}
int utime(const char* path, const utimbuf* times) noexcept {
    return changePath("utimes", AT_FDCWD, path,
                      [=](int, const char* host) { return SIM_REAL(utime)(host, times); });
}

int setxattr(const char* path, const char* name, const void* value, size_t size,
             int flags) noexcept {
    return changePath("setxattr", AT_FDCWD, path, [=](int, const char* host) {
        return SIM_REAL(setxattr)(host, name, value, size, flags);
    });
}
int lsetxattr(const char* path, const char* name, const void* value, size_t size,
              int flags) noexcept {
    return changePath("setxattr", AT_FDCWD, path, [=](int, const char* host) {
        return SIM_REAL(lsetxattr)(host, name, value, size, flags);
    });
}
int removexattr(const char* path, const char* name) noexcept {
    return changePath("removexattr", AT_FDCWD, path,
                      [=](int, const char* host) { return SIM_REAL(removexattr)(host, name); });
}
int lremovexattr(const char* path, const char* name) noexcept {
    return changePath("removexattr", AT_FDCWD, path,
                      [=](int, const char* host) { return SIM_REAL(lremovexattr)(host, name); });
}

int truncate(const char* path, off_t size) noexcept {
    return changePath("truncate", AT_FDCWD, path,
                      [=](int, const char* host) { return SIM_REAL(truncate)(host, size); });
}
int truncate64(const char* path, off64_t size) noexcept {
    return changePath("truncate", AT_FDCWD, path,
                      [=](int, const char* host) { return SIM_REAL(truncate64)(host, size); });
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
              unsigned flags) noexcept {
    return changeBoth("rename", fromFolder, from, toFolder, to,
                      [=](int atFrom, const char* hostFrom, int atTo, const char* hostTo) {
                          return SIM_REAL(renameat2)(atFrom, hostFrom, atTo, hostTo, flags);
                      });
}
int renameat(int fromFolder, const char* from, int toFolder, const char* to) noexcept {
    return renameat2(fromFolder, from, toFolder, to, 0);
}
int rename(const char* from, const char* to) noexcept {
    return renameat2(AT_FDCWD, from, AT_FDCWD, to, 0);
}

int linkat(int fromFolder, const char* from, int toFolder, const char* to, int flags) noexcept {
    return changeBoth("link", fromFolder, from, toFolder, to,
                      [=](int atFrom, const char* hostFrom, int atTo, const char* hostTo) {
                          return SIM_REAL(linkat)(atFrom, hostFrom, atTo, hostTo, flags);
                      });
}
int link(const char* from, const char* to) noexcept {
    return linkat(AT_FDCWD, from, AT_FDCWD, to, 0);
}

/// A link to a path of the terminal would lead to the host's, but for one among its files. What is
/// relative counts from the link's own folder.
int symlinkat(const char* target, int folder, const char* path) noexcept {
    const std::string link = path, leadsTo = target;
    const bool isRelative = !leadsTo.empty() && leadsTo[0] != '/';
    const std::string from = isRelative ? link.substr(0, link.rfind('/') + 1) : "";
    const bool leadsAmongFiles = isRelative && leadsTo.find("..") == std::string::npos &&
                                 sim::route("", folder, path, Looks).kind != Route::Host;
    if (!leadsAmongFiles &&
        sim::route("", folder, (from + leadsTo).c_str(), Looks).kind != Route::Host)
        return sim::failWith(EPERM);
    return changePath("symlink", folder, path, [=](int at, const char* host) {
        return SIM_REAL(symlinkat)(target, at, host);
    });
}
int symlink(const char* target, const char* path) noexcept {
    return symlinkat(target, AT_FDCWD, path);
}

}  // extern "C"
