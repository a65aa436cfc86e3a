#include "sim/programs/Door.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "sim/programs/DoorProtocol.h"

namespace program {
namespace {

constexpr int NoTerminal = 126;

[[noreturn]] void endWith(const std::string& how, int number) {
    if (how == "kill") {
        ::signal(number, SIG_DFL);
        ::raise(number);
    }
    _exit(number);
}

}  // namespace

Door::Door(std::string programName) : name(std::move(programName)) {
    const char* const folder = getenv(door::RootVariable);
    root = folder ? folder : "";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = hostPath(door::SocketPath);
    if (path.size() < sizeof address.sun_path)
        memcpy(address.sun_path, path.c_str(), path.size());
    socket = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        fprintf(stderr, "%s: no terminal\n", name.c_str());
        _exit(NoTerminal);
    }
}

void Door::begin(const Words& arguments) {
    Words question{door::Begin, std::to_string(getpid()), std::to_string(getppid()), name};
    question.insert(question.end(), arguments.begin(), arguments.end());
    const std::string order = ask(question)[0];
    const size_t blank = order.find(' ');
    if (blank != std::string::npos)
        endWith(order.substr(0, blank), atoi(order.c_str() + blank));
}

Words Door::ask(const Words& question) const {
    std::string packet;
    for (const std::string& word : question)
        packet += word + '\0';
    if (::send(socket, packet.data(), packet.size(), MSG_NOSIGNAL) < 0)
        _exit(NoTerminal);
    packet.resize(door::LongestPacket);
    const ssize_t received = ::recv(socket, packet.data(), packet.size(), 0);
    if (received <= 0)
        _exit(NoTerminal);
    const auto size = static_cast<size_t>(received);
    Words answer;
    for (size_t at = 0; at < size; at += answer.back().size() + 1)
        answer.emplace_back(packet.data() + at, strnlen(packet.data() + at, size - at));
    return answer;
}

int Door::fork() const {
    int ready[2];
    if (::pipe2(ready, O_CLOEXEC) != 0)
        _exit(EXIT_FAILURE);
    const pid_t child = ::fork();
    if (child != 0) {
        ::close(ready[1]);
        char byte = 0;
        const bool isReady = child > 0 && ::read(ready[0], &byte, 1) == 1;
        _exit(isReady ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    ::close(ready[0]);
    ::setsid();
    ask({door::Daemon, std::to_string(getpid())});
    return ready[1];
}

void Door::release(int parent) {
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int standard = STDIN_FILENO; standard <= STDERR_FILENO; ++standard)
        ::dup2(nowhere, standard);
    ::close(nowhere);
    if (::write(parent, "", 1) != 1)
        _exit(EXIT_FAILURE);
    ::close(parent);
}

void writePidFile(const std::string& hostPath) {
    if (FILE* const file = fopen(hostPath.c_str(), "w")) {
        fprintf(file, "%d\n", static_cast<int>(getpid()));
        fclose(file);
    }
}

}  // namespace program
