#include "io/TcpSocket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "io/NoCancellation.h"

namespace {

struct AddressesFreer {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, AddressesFreer>;

/// The IPv4 addresses of a host; null when there are none.
Addresses resolve(const char* host, int port) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    const int error = getaddrinfo(host, std::to_string(port).c_str(), &hints, &list);
    return Addresses(error == 0 ? list : nullptr);
}

template <class Value> bool setOption(int sock, int level, int option, const Value& value) {
    return setsockopt(sock, level, option, &value, sizeof value) == 0;
}

timeval intervalOf(int ms) { return {ms / 1000, ms % 1000 * 1000}; }

}  // namespace

bool TcpSocket::connect(const char* host, int port) {
    if (sock >= 0)
        close();
    const Addresses addresses = resolve(host, port);
    if (!addresses)
        return false;
    sock = ::socket(addresses->ai_family, addresses->ai_socktype | SOCK_CLOEXEC,
                    addresses->ai_protocol);
    if (sock < 0)
        return false;
    if (setTimeouts(sendTimeout, receiveTimeout) &&
        ::connect(sock, addresses->ai_addr, addresses->ai_addrlen) == 0)
        return true;
    close();
    return false;
}

bool TcpSocket::close() {
    if (sock < 0)
        return false;
    const io::NoCancellation scope;
    const bool closed = ::close(sock) == 0;
    sock = -1;
    return closed;
}

bool TcpSocket::writeData(unsigned char* buf, unsigned int len) {
    const ssize_t sent = ::send(sock, buf, len, MSG_NOSIGNAL);
    return sent >= 0 && static_cast<size_t>(sent) == len;
}

int TcpSocket::readData(unsigned char* buf, unsigned int len) {
    const ssize_t received = ::recv(sock, buf, len, 0);
    return received < 0 ? 0 : static_cast<int>(received);
}

/// The count that a request of the system gives.
int TcpSocket::request(unsigned long number) {
    int count = 0;
    return ::ioctl(sock, number, &count) == 0 ? count : 0;
}

int TcpSocket::getPendingInput() { return request(FIONREAD); }

int TcpSocket::getPendingOutput() { return request(TIOCOUTQ); }

bool TcpSocket::setTimeouts(int sendTimeoutMs, int receiveTimeoutMs) {
    sendTimeout = sendTimeoutMs;
    receiveTimeout = receiveTimeoutMs;
    if (sock < 0)
        return true;
    const bool receiveSet = setOption(sock, SOL_SOCKET, SO_RCVTIMEO, intervalOf(receiveTimeout));
    return setOption(sock, SOL_SOCKET, SO_SNDTIMEO, intervalOf(sendTimeout)) && receiveSet;
}

bool TcpSocket::setKeepalive(int idleSeconds, int intervalSeconds, int count) {
    constexpr int On = 1;
    return setOption(sock, IPPROTO_TCP, TCP_KEEPCNT, count) &&
           setOption(sock, IPPROTO_TCP, TCP_KEEPIDLE, idleSeconds) &&
           setOption(sock, IPPROTO_TCP, TCP_KEEPINTVL, intervalSeconds) &&
           setOption(sock, SOL_SOCKET, SO_KEEPALIVE, On);
}

bool TcpSocket::isConnected() {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    return ::getpeername(sock, reinterpret_cast<sockaddr*>(&peer), &size) == 0;
}
