// What the master of a legacy pseudo-terminal pair tells of its slave.

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sim/posix/Descriptors.h"
#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

namespace {

std::string slaveOf(int fd) {
    const auto file = sim::Descriptors::get().find(fd);
    return file ? file->slaveName() : "";
}

}  // namespace

extern "C" {

int ptsname_r(int fd, char* name, size_t size) noexcept {
    const std::string slave = slaveOf(fd);
    if (slave.empty())
        return SIM_REAL(ptsname_r)(fd, name, size);
    const int error = sim::faultOf("ptsname", slave);
    if (error != 0 || slave.size() >= size)
        return errno = error != 0 ? error : ERANGE;
    memcpy(name, slave.c_str(), slave.size() + 1);
    return 0;
}

int __ptsname_r_chk(int fd, char* name, size_t size, size_t nameSize) noexcept {
    if (size > nameSize)
        abort();
    return ::ptsname_r(fd, name, size);
}

char* ptsname(int fd) noexcept {
    if (slaveOf(fd).empty())
        return SIM_REAL(ptsname)(fd);
    static thread_local char name[32];
    return ::ptsname_r(fd, name, sizeof name) == 0 ? name : nullptr;
}

int grantpt(int fd) noexcept { return slaveOf(fd).empty() ? SIM_REAL(grantpt)(fd) : 0; }
int unlockpt(int fd) noexcept { return slaveOf(fd).empty() ? SIM_REAL(unlockpt)(fd) : 0; }

}  // extern "C"
