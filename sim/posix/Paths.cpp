// Calls that look at or change a path without opening it. Device nodes have no host file: they can
// be asked for and looked at, not changed.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

using sim::Route;

namespace {

constexpr bool Looks = false;
constexpr bool Changes = true;

/// Does `call` on the path's place on the host. A node fails with EPERM, or has `onNode()` answer.
template <class Result, class Call, class OnNode> Result
onPath(const char* name, const char* path, bool changes, Result failure, Call call, OnNode onNode) {
    const Route found = sim::route(name, path, changes);
    switch (found.kind) {
    case Route::Host: return call(path);
    case Route::File: return call(found.place.hostPath.c_str());
    case Route::Node: return onNode();
    case Route::Nothing: break;
    }
    errno = found.place.error;
    return failure;
}

template <class Call> int changePath(const char* name, const char* path, Call call) {
    return onPath(name, path, Changes, -1, call, [] { return sim::failWith(EPERM); });
}

template <class Status> int statNode(Status* status) {
    memset(status, 0, sizeof *status);
    status->st_mode = S_IFCHR | 0660;
    status->st_nlink = 1;
    return 0;
}

template <class Status, class Call> int statPath(const char* path, Status* status, Call call) {
    return onPath(
        "stat", path, Looks, -1, [=](const char* host) { return call(host, status); },
        [=] { return statNode(status); });
}

/// Below an open folder a path is what that folder was opened as.
bool countsFrom(int folder, const char* path) { return path && *path != '/' && folder != AT_FDCWD; }

}  // namespace

extern "C" {

int stat(const char* path, struct stat* status) noexcept {
    return statPath(path, status, SIM_REAL(stat));
}
int stat64(const char* path, struct stat64* status) noexcept {
    return statPath(path, status, SIM_REAL(stat64));
}
int lstat(const char* path, struct stat* status) noexcept {
    return statPath(path, status, SIM_REAL(lstat));
}
int lstat64(const char* path, struct stat64* status) noexcept {
    return statPath(path, status, SIM_REAL(lstat64));
}
int fstatat(int folder, const char* path, struct stat* status, int flags) noexcept {
    if (countsFrom(folder, path))
        return SIM_REAL(fstatat)(folder, path, status, flags);
    return statPath(path, status, [=](const char* host, struct stat* result) {
        return SIM_REAL(fstatat)(folder, host, result, flags);
    });
}
int fstatat64(int folder, const char* path, struct stat64* status, int flags) noexcept {
    if (countsFrom(folder, path))
        return SIM_REAL(fstatat64)(folder, path, status, flags);
    return statPath(path, status, [=](const char* host, struct stat64* result) {
        return SIM_REAL(fstatat64)(folder, host, result, flags);
    });
}

int access(const char* path, int mode) noexcept {
    return onPath(
        "access", path, (mode & W_OK) != 0, -1,
        [=](const char* host) { return SIM_REAL(access)(host, mode); }, [] { return 0; });
}
int faccessat(int folder, const char* path, int mode, int flags) noexcept {
    if (countsFrom(folder, path))
        return SIM_REAL(faccessat)(folder, path, mode, flags);
    return onPath(
        "access", path, (mode & W_OK) != 0, -1,
        [=](const char* host) { return SIM_REAL(faccessat)(folder, host, mode, flags); },
        [] { return 0; });
}

DIR* opendir(const char* path) {
    return onPath<DIR*>("opendir", path, Looks, nullptr, SIM_REAL(opendir), []() -> DIR* {
        errno = ENOTDIR;
        return nullptr;
    });
}

int unlink(const char* path) noexcept { return changePath("unlink", path, SIM_REAL(unlink)); }
int remove(const char* path) noexcept { return changePath("unlink", path, SIM_REAL(remove)); }
int rmdir(const char* path) noexcept { return changePath("rmdir", path, SIM_REAL(rmdir)); }

int unlinkat(int folder, const char* path, int flags) noexcept {
    if (countsFrom(folder, path))
        return SIM_REAL(unlinkat)(folder, path, flags);
    return changePath("unlink", path,
                      [=](const char* host) { return SIM_REAL(unlinkat)(folder, host, flags); });
}

int mkdir(const char* path, mode_t mode) noexcept {
    return changePath("mkdir", path, [=](const char* host) { return SIM_REAL(mkdir)(host, mode); });
}
int mknod(const char* path, mode_t mode, dev_t device) noexcept {
    return changePath("mknod", path,
                      [=](const char* host) { return SIM_REAL(mknod)(host, mode, device); });
}
int mkfifo(const char* path, mode_t mode) noexcept {
    return changePath("mkfifo", path,
                      [=](const char* host) { return SIM_REAL(mkfifo)(host, mode); });
}
int chmod(const char* path, mode_t mode) noexcept {
    return changePath("chmod", path, [=](const char* host) { return SIM_REAL(chmod)(host, mode); });
}
int chown(const char* path, uid_t user, gid_t group) noexcept {
    return changePath("chown", path,
                      [=](const char* host) { return SIM_REAL(chown)(host, user, group); });
}
int truncate(const char* path, off_t size) noexcept {
    return changePath("truncate", path,
                      [=](const char* host) { return SIM_REAL(truncate)(host, size); });
}
int truncate64(const char* path, off64_t size) noexcept {
    return changePath("truncate", path,
                      [=](const char* host) { return SIM_REAL(truncate64)(host, size); });
}

int rename(const char* from, const char* to) noexcept {
    return changePath("rename", from, [=](const char* hostFrom) {
        return changePath("rename", to,
                          [=](const char* hostTo) { return SIM_REAL(rename)(hostFrom, hostTo); });
    });
}
int link(const char* from, const char* to) noexcept {
    return changePath("link", from, [=](const char* hostFrom) {
        return changePath("link", to,
                          [=](const char* hostTo) { return SIM_REAL(link)(hostFrom, hostTo); });
    });
}

/// A link to a path of the terminal would lead to the host's.
int symlink(const char* target, const char* path) noexcept {
    if (sim::route("symlink", target, Looks).kind != Route::Host)
        return sim::failWith(EPERM);
    return changePath("symlink", path,
                      [=](const char* host) { return SIM_REAL(symlink)(target, host); });
}

ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
    return onPath<ssize_t>(
        "readlink", path, Looks, -1,
        [=](const char* host) { return SIM_REAL(readlink)(host, buffer, size); },
        [] { return sim::failWith(EINVAL); });
}

}  // extern "C"
