// Files and folders under names that libc completes: it does so in the place of the path on the
// host, and the program is told the six letters.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

using sim::Route;

namespace {

/// Does `call` on the name, in which a suffix follows the letters.
template <class Result, class Call>
Result complete(const char* name, char* path, int suffix, Result failure, Call call) {
    constexpr size_t Letters = 6;
    constexpr bool Changes = true;
    const Route found = sim::route(name, AT_FDCWD, path, Changes);
    if (found.kind == Route::Host)
        return call(path);
    if (found.kind != Route::File) {
        errno = found.kind == Route::Node ? EEXIST : found.place.error;
        return failure;
    }
    std::string place = found.place.hostPath;
    const Result result = call(place.data());
    const size_t end = Letters + static_cast<size_t>(suffix);
    if (result != failure)
        memcpy(path + strlen(path) - end, place.data() + place.size() - end, Letters);
    return result;
}

}  // namespace

extern "C" {

int mkostemps(char* path, int suffix, int flags) {
    return complete("mkstemp", path, suffix, -1,
                    [=](char* place) { return SIM_REAL(mkostemps)(place, suffix, flags); });
}
int mkostemps64(char* path, int suffix, int flags) {
    return complete("mkstemp", path, suffix, -1,
                    [=](char* place) { return SIM_REAL(mkostemps64)(place, suffix, flags); });
}
int mkstemp(char* path) { return mkostemps(path, 0, 0); }
int mkstemp64(char* path) { return mkostemps64(path, 0, 0); }
int mkostemp(char* path, int flags) { return mkostemps(path, 0, flags); }
int mkostemp64(char* path, int flags) { return mkostemps64(path, 0, flags); }
int mkstemps(char* path, int suffix) { return mkostemps(path, suffix, 0); }
int mkstemps64(char* path, int suffix) { return mkostemps64(path, suffix, 0); }

char* mkdtemp(char* path) noexcept {
    const auto make = [=](char* place) { return SIM_REAL(mkdtemp)(place) ? path : nullptr; };
    return complete<char*>("mkdtemp", path, 0, nullptr, make);
}

}  // extern "C"
