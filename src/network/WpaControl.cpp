#include "network/WpaControl.h"

#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "foundation/TimeLimit.h"
#include "io/FileDescriptor.h"
#include "io/NoCancellation.h"

namespace {

constexpr long WaitSeconds = 2;
constexpr int LongestRequestMs = 10'000;

std::atomic<int> openCount{0};

template <class... Values>
bool formatPath(sockaddr_un& address, const char* format, Values... values) {
    address.sun_family = AF_UNIX;
    const int length = std::snprintf(address.sun_path, sizeof address.sun_path, format, values...);
    return length >= 0 && static_cast<size_t>(length) < sizeof address.sun_path;
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

/// Binds, over a path that nobody removed if need be: once.
bool bindLocally(int socket, const sockaddr_un& local) {
    if (::bind(socket, generic(local), sizeof local) == 0)
        return true;
    if (errno != EADDRINUSE)
        return false;
    ::unlink(local.sun_path);
    return ::bind(socket, generic(local), sizeof local) == 0;
}

enum class Direction { Read, Write };

bool waitFor(int socket, Direction direction) {
    fd_set sockets;
    FD_ZERO(&sockets);
    FD_SET(socket, &sockets);
    timeval timeout{};
    timeout.tv_sec = WaitSeconds;
    return direction == Direction::Read
               ? ::select(socket + 1, &sockets, nullptr, nullptr, &timeout) > 0
               : ::select(socket + 1, nullptr, &sockets, nullptr, &timeout) > 0;
}

/// A daemon that has stopped reading would hold a plain send up for ever.
bool sendCommand(int socket, const char* command, unsigned length) {
    return waitFor(socket, Direction::Write) &&
           ::send(socket, command, length, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
}

}  // namespace

WPA_CONTROL* wpa_ctrl_open(const char* dir, const char* name) {
    if (!dir || !name)
        return nullptr;
    io::FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.isOpen() || socket.get() >= FD_SETSIZE)
        return nullptr;
    sockaddr_un local{};
    if (!formatPath(local, "/tmp/wpa_ctrl_%d-%d", static_cast<int>(::getpid()), ++openCount) ||
        !bindLocally(socket.get(), local))
        return nullptr;
    WpaControlOwner control(new WPA_CONTROL{socket.release(), local, {}});
    if (!formatPath(control->remote, "%s/%s", dir, name) ||
        ::connect(control->socket, generic(control->remote), sizeof control->remote) != 0)
        return nullptr;
    return control.release();
}

int wpa_ctrl_request(WPA_CONTROL* ctrl, const char* cmd, unsigned int cmdLen, char* reply,
                     unsigned int* replyLen, void (*msgCallback)(char*, unsigned int)) {
    constexpr int NotSent = -1;
    constexpr int TimedOut = -2;
    if (!ctrl || !cmd || !reply || !replyLen || !sendCommand(ctrl->socket, cmd, cmdLen))
        return NotSent;
    const foundation::TimeLimit limit(LongestRequestMs);
    while (waitFor(ctrl->socket, Direction::Read)) {
        const ssize_t received = ::recv(ctrl->socket, reply, *replyLen, MSG_DONTWAIT);
        if (received < 0)
            return static_cast<int>(received);
        auto length = static_cast<unsigned>(received);
        if (length == 0 || reply[0] != '<') {
            *replyLen = length;
            return 0;
        }
        if (msgCallback) {
            if (length == *replyLen)
                --length;
            reply[length] = '\0';
            msgCallback(reply, length);
        }
        if (limit.leftMs() == 0)
            break;
    }
    return TimedOut;
}

void wpa_ctrl_close(WPA_CONTROL* ctrl) {
    if (!ctrl)
        return;
    const io::NoCancellation scope;
    ::unlink(ctrl->local.sun_path);
    ::close(ctrl->socket);
    delete ctrl;
}
