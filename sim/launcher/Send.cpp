#include "sim/launcher/Send.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace launcher {
namespace {

enum Status : int { Done = 0, Failed = 1, NoTerminal = 2 };

std::string readAll(int socket) {
    std::string text;
    char piece[512];
    for (ssize_t count = 0; (count = ::recv(socket, piece, sizeof piece, 0)) > 0;)
        text.append(piece, static_cast<size_t>(count));
    return text;
}

}  // namespace

int send(const std::string& socketPath, const std::string& command) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath.size() < sizeof address.sun_path)
        memcpy(address.sun_path, socketPath.c_str(), socketPath.size());
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const std::string line = command + "\n";
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::send(socket, line.data(), line.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(line.size())) {
        perror(socketPath.c_str());
        ::close(socket);
        return NoTerminal;
    }
    const std::string answer = readAll(socket);
    ::close(socket);
    const size_t end = answer.find('\n');
    if (end == std::string::npos)
        return NoTerminal;  // it has ended
    const bool isDone = answer.compare(0, end, "ok") == 0;
    fputs(answer.c_str() + end + 1, isDone ? stdout : stderr);
    return isDone ? Done : Failed;
}

}  // namespace launcher
