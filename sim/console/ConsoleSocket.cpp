#include "sim/console/ConsoleSocket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "sim/posix/Real.h"

namespace sim {
namespace {

constexpr size_t LongestCommand = 4096;
constexpr timeval Patience{5, 0};  // with a client that sends nothing

/// Up to the end of the line, of what the client sends, or of patience.
std::string readLine(int client) {
    ::setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &Patience, sizeof Patience);
    std::string line;
    char byte = 0;
    while (line.size() < LongestCommand && ::recv(client, &byte, 1, 0) == 1 && byte != '\n')
        line += byte;
    return line;
}

}  // namespace

ConsoleSocket::ConsoleSocket(Terminal& terminal, const std::string& path)
    : console(terminal), listener(SIM_REAL(socket)(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::runtime_error("too long for a socket: " + path);
    memcpy(address.sun_path, path.c_str(), path.size());
    if (SIM_REAL(bind)(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, SOMAXCONN) != 0)
        throw std::runtime_error("no console at " + path + ": " + strerror(errno));
}

ConsoleSocket::~ConsoleSocket() { SIM_REAL(close)(listener); }

void ConsoleSocket::serve() {
    while (!console.hasQuit()) {
        const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0 && errno != EINTR && errno != ECONNABORTED)
            return;
        if (client >= 0)
            answer(client);
    }
}

void ConsoleSocket::answer(int client) {
    const std::string said = console.execute(readLine(client));
    const std::string text =
        (console.hasFailed() ? "failed\n" : "ok\n") + said + (said.empty() ? "" : "\n");
    for (size_t sent = 0; sent < text.size();) {
        const ssize_t written =
            ::send(client, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (written <= 0)
            break;
        sent += static_cast<size_t>(written);
    }
    SIM_REAL(close)(client);
}

}  // namespace sim
