// Sockets: those that lie on a path of the terminal are found, and made, below its root folder.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>

#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

using sim::Route;

namespace {

/// The path of a socket address, or "" when it has none.
std::string pathOf(const sockaddr* address, socklen_t size) {
    constexpr size_t Begin = offsetof(sockaddr_un, sun_path);
    if (!address || size <= Begin || size > sizeof(sockaddr_un) || address->sa_family != AF_UNIX)
        return "";
    const char* const path = reinterpret_cast<const char*>(address) + Begin;
    return std::string(path, strnlen(path, size - Begin));
}

/// Does `call` at the address, or at its place below the root folder.
template <class Call> auto atAddress(const char* name, const sockaddr* address, socklen_t size,
                                     bool makes, Call call) -> decltype(call(address, size)) {
    const std::string path = pathOf(address, size);
    const Route found = sim::route(name, AT_FDCWD, path.c_str(), makes);
    if (found.kind == Route::Host)
        return call(address, size);
    if (found.kind != Route::File)
        return sim::failWith(found.kind == Route::Node ? ECONNREFUSED : found.place.error);
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    if (found.place.hostPath.size() >= sizeof place.sun_path)
        return sim::failWith(ENAMETOOLONG);
    memcpy(place.sun_path, found.place.hostPath.c_str(), found.place.hostPath.size());
    return call(reinterpret_cast<const sockaddr*>(&place), sizeof place);
}

}  // namespace

extern "C" {

/// The other domains reach the host's interfaces and adapters.
int socket(int domain, int type, int protocol) noexcept {
    if (sim::failsByFault("socket"))
        return -1;
    if (domain != AF_UNIX && domain != AF_INET && domain != AF_INET6)
        return sim::failWith(EAFNOSUPPORT);
    return SIM_REAL(socket)(domain, type, protocol);
}

int bind(int fd, const sockaddr* address, socklen_t size) noexcept {
    return atAddress("bind", address, size, true, [=](const sockaddr* place, socklen_t placeSize) {
        return SIM_REAL(bind)(fd, place, placeSize);
    });
}

int connect(int fd, const sockaddr* address, socklen_t size) {
    return atAddress("connect", address, size, false,
                     [=](const sockaddr* place, socklen_t placeSize) {
                         return SIM_REAL(connect)(fd, place, placeSize);
                     });
}

ssize_t sendto(int fd, const void* data, size_t length, int flags, const sockaddr* address,
               socklen_t size) {
    return atAddress("sendto", address, size, false,
                     [=](const sockaddr* place, socklen_t placeSize) {
                         return SIM_REAL(sendto)(fd, data, length, flags, place, placeSize);
                     });
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    return atAddress("sendmsg", static_cast<const sockaddr*>(message->msg_name),
                     message->msg_namelen, false, [=](const sockaddr* place, socklen_t placeSize) {
                         msghdr placed = *message;
                         placed.msg_name = const_cast<sockaddr*>(place);
                         placed.msg_namelen = placeSize;
                         return SIM_REAL(sendmsg)(fd, &placed, flags);
                     });
}

int sendmmsg(int fd, mmsghdr* messages, unsigned count, int flags) {
    unsigned sent = 0;
    for (; sent < count; ++sent) {
        const ssize_t size = ::sendmsg(fd, &messages[sent].msg_hdr, flags);
        if (size < 0)
            break;
        messages[sent].msg_len = static_cast<unsigned>(size);
    }
    return sent == 0 && count > 0 ? -1 : static_cast<int>(sent);
}

}  // extern "C"
