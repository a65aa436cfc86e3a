// The engine's ports: how they are opened and waited for.

#include <fcntl.h>
#include <poll.h>
#include <termios.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "gsm/Gsm0710Mux.h"

using foundation::TimeLimit;

namespace {

constexpr int RestMs = 100;

/// Octets pass unchanged, and none of them is a command to the terminal driver.
void setRaw(termios& settings) {
    settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHOE | ISIG);
    settings.c_iflag &= ~static_cast<tcflag_t>(INLCR | IGNCR | ICRNL | IUCLC | ISTRIP | INPCK |
                                               PARMRK | BRKINT | IXON | IXANY | IXOFF);
    settings.c_oflag &= ~static_cast<tcflag_t>(OPOST | OLCUC | OCRNL | ONOCR | ONLRET);
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
}

// Not handed on to the programs that the application starts: a copy of a master would keep its
// slave alive after a suspend, and the master could not be opened again.
constexpr int OpenFlags = O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC;

}  // namespace

/// The line stays non-blocking: a module that takes nothing must not hold up what it sends itself.
bool Gsm0710Mux::openPhysicalPort(const char* path) {
    if (!path)
        return false;
    physicalFd.reset(io::openAtOnce(path, OpenFlags));
    if (!physicalFd.isOpen())
        return false;
    termios settings{};
    if (tcgetattr(physicalFd.get(), &settings) == 0) {
        setRaw(settings);
        settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE | CSTOPB | PARENB);
        settings.c_cflag |= CS8 | CREAD | CLOCAL | CRTSCTS;
        tcsetattr(physicalFd.get(), TCSANOW, &settings);
    }
    return true;
}

bool Gsm0710Mux::openVirtualPort(int index) {
    io::FileDescriptor& master = virtualFds[index];
    master.reset(io::openAtOnce(virtualNames[index].c_str(), OpenFlags));
    if (!master.isOpen())
        return false;
    const char* const slave = ::ptsname(master.get());
    if (!slave)
        return false;
    termios settings{};
    if (tcgetattr(master.get(), &settings) == 0) {
        setRaw(settings);
        tcsetattr(master.get(), TCSANOW, &settings);
    }
    // The pairs in use have fixed names and are never locked; only what opens through the common
    // master device would have to be.
    if (std::strcmp(slave, "/dev/ptmx") == 0) {
        ::grantpt(master.get());
        ::unlockpt(master.get());
    }
    return true;
}

/// Opens the masters that are not open. One whose slave is still held by a program from before a
/// suspend cannot be, for now.
void Gsm0710Mux::openVirtualPorts() {
    for (int index = 0; index < channelCount; ++index) {
        if (!virtualFds[index].isOpen())
            openVirtualPort(index);
    }
}

void Gsm0710Mux::closeVirtualPorts() {
    for (io::FileDescriptor& master : virtualFds)
        master.reset();
}

/// What of the events, hang-up and error conditions has come within the time-out; 0 when nothing
/// has. A signal does not end the wait, unless the worker has been asked to stop: 0 then.
short Gsm0710Mux::waitFor(int fd, short events, int timeoutMs) {
    pollfd waited{fd, events, 0};
    const TimeLimit limit(timeoutMs);
    int count = 0;
    do
        count = ::poll(&waited, 1, limit.leftMs());
    while (count < 0 && errno == EINTR && !stopRequested());
    return static_cast<short>(count > 0 ? waited.revents : 0);
}

bool Gsm0710Mux::isOutputReady(int fd, int timeoutMs) {
    return waitFor(fd, POLLOUT, timeoutMs) & POLLOUT;
}

void Gsm0710Mux::rest(int channel) {
    if (resting.none())
        restLimit = TimeLimit(RestMs);
    resting.set(static_cast<size_t>(channel));
}

/// Ends the rest when it is time, and shortens a wait so that it does not outlast the rest.
int Gsm0710Mux::endRest(int timeoutMs) {
    if (resting.any() && restLimit.leftMs() == 0) {
        resting.reset();
        openVirtualPorts();
    }
    for (int channel = 1; channel <= channelCount; ++channel) {
        if (!virtualFds[channel - 1].isOpen() && !resting[static_cast<size_t>(channel)])
            rest(channel);
    }
    return resting.any() ? std::min(timeoutMs, restLimit.leftMs()) : timeoutMs;
}

/// Waits for input on the line and on the virtual ports, and writes what the line has not taken
/// yet. Programs are not heard until it has. The descriptors that are ready, in this order; their
/// number is 0 on time-out or error.
int Gsm0710Mux::getPendingFds(int* fds, int timeoutMs) {
    if (!flushOutput())
        rest(0);
    timeoutMs = endRest(timeoutMs);
    const bool congested = isCongested();

    pollfd polled[MaxDescriptors];
    nfds_t polledCount = 0;
    if (!resting[0]) {
        const auto events = static_cast<short>(congested ? POLLIN | POLLOUT : POLLIN);
        polled[polledCount++] = {physicalFd.get(), events, 0};
    }
    for (int channel = 1; channel <= channelCount && !congested; ++channel) {
        if (!resting[static_cast<size_t>(channel)])
            polled[polledCount++] = {virtualFds[channel - 1].get(), POLLIN, 0};
    }

    int pending = 0;
    if (::poll(polled, polledCount, timeoutMs) > 0) {
        for (nfds_t i = 0; i < polledCount; ++i) {
            if (polled[i].revents & ~POLLOUT)
                fds[pending++] = polled[i].fd;
        }
    }
    return pending;
}
