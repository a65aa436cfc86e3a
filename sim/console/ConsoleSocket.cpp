#include "sim/console/ConsoleSocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "sim/HostTime.h"
#include "sim/posix/Descriptors.h"
#include "sim/posix/Real.h"

namespace sim {
namespace {

constexpr size_t LongestCommand = 4096;
constexpr auto Patience = std::chrono::seconds(5);  // with a client and its line

/// No line when it is too long, the client goes away before its end, or patience does.
std::optional<std::string> readLine(int client) {
    constexpr int LookMs = 100;
    const HostDeadline deadline(Patience);
    std::string line;
    while (line.size() <= LongestCommand && !deadline.passed()) {
        pollfd waited{client, POLLIN, 0};
        if (SIM_REAL(poll)(&waited, 1, LookMs) == 0)
            continue;
        char byte = 0;
        if (::recv(client, &byte, 1, MSG_DONTWAIT) != 1)
            break;
        if (byte == '\n')
            return line;
        line += byte;
    }
    return std::nullopt;
}

/// What passes by itself: the application may use up the descriptors for a time.
bool isShortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

ConsoleSocket::ConsoleSocket(Terminal& terminal, const std::string& path)
    : console(terminal),
      listener(Descriptors::get().keep(SIM_REAL(socket)(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::runtime_error("too long for a socket: " + path);
    memcpy(address.sun_path, path.c_str(), path.size());
    if (SIM_REAL(bind)(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, SOMAXCONN) != 0)
        throw std::runtime_error("no console at " + path + ": " + strerror(errno));
}

ConsoleSocket::~ConsoleSocket() { Descriptors::get().closeKept(listener); }

bool ConsoleSocket::serve() {
    while (!console.hasQuit()) {
        const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0)
            answer(client);
        else if (isShortage(errno))
            pauseBriefly();
        else if (errno != EINTR && errno != ECONNABORTED)
            return false;
    }
    return true;
}

void ConsoleSocket::answer(int client) {
    const std::optional<std::string> line = readLine(client);
    const std::string said = line ? console.execute(*line) : "not a whole line";
    const bool isDone = line && !console.hasFailed();
    const std::string text = (isDone ? "ok\n" : "failed\n") + said + (said.empty() ? "" : "\n");
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
