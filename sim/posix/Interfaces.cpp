#include "sim/posix/Interfaces.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "network/WlanProtocol.h"
#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

namespace sim {
namespace {

constexpr unsigned long FirstRoute = 0x890B;  // below are a socket's own requests
constexpr unsigned long GetName = 0x8910;     // by the interface's number
constexpr unsigned long GetAll = 0x8912;

/// Whether the record begins with the name of an interface.
bool namesInterface(unsigned long request) { return request > GetName; }

}  // namespace

bool isInterfaceRequest(unsigned long request) {
    constexpr unsigned long SocketRequests = 0x8900;
    constexpr unsigned long WirelessRequests = 0x8B00;
    const unsigned long kind = request & ~0xFFUL;
    const bool onlyAsks = request == GetName || request == GetAll;
    return kind == WirelessRequests ||
           (kind == SocketRequests && request >= FirstRoute && !onlyAsks);
}

int interfaceRequest(int fd, unsigned long request, void* record) {
    if (SIM_REAL(fcntl)(fd, F_GETFD) < 0)
        return -1;
    Terminal* const terminal = Terminal::current();
    if (!terminal || !namesInterface(request))
        return failWith(EPERM);
    if (!record)
        return failWith(EFAULT);
    const char* const text = static_cast<const char*>(record);
    const std::string name(text, strnlen(text, wlan::NameSize));
    if (failsByFault("ioctl", name))
        return -1;
    NetworkInterface* const interface = terminal->findInterface(name);
    return interface ? interface->ioctl(request, record) : failWith(ENODEV);
}

}  // namespace sim
