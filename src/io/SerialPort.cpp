#include "io/SerialPort.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "io/FileDescriptor.h"
#include "io/NoCancellation.h"
#include "io/SerialClose.h"

namespace {

constexpr struct {
    unsigned long baud;
    speed_t code;
} Speeds[] = {{110, B110},     {300, B300},     {600, B600},      {1200, B1200},
              {2400, B2400},   {4800, B4800},   {9600, B9600},    {19200, B19200},
              {38400, B38400}, {57600, B57600}, {115200, B115200}};

constexpr tcflag_t SoftwareFlow = IXON | IXANY | IXOFF;

}  // namespace

SerialPort::~SerialPort() {
    if (descriptor != -1)
        close();
}

bool SerialPort::open(char const* devicePath) {
    path = devicePath ? devicePath : "";
    closeDescriptor();
    return openDevice();
}

bool SerialPort::reOpen() {
    hungUp = true;
    closeDescriptor();
    return openDevice();
}

bool SerialPort::openDevice() {
    // Non-blocking, so that the open cannot hang on the modem lines. As a controlling terminal its
    // hang-up would end an application that leads a session.
    descriptor = io::openAtOnce(path.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY);
    if (descriptor == -1)
        return false;
    hungUp = false;
    initConfig();
    return true;
}

void SerialPort::closeDescriptor() {
    io::NoCancellation scope;
    const int closing = descriptor.exchange(-1);
    if (closing != -1)
        ::close(closing);
}

bool SerialPort::close() {
    io::NoCancellation scope;  // also called by the destructor
    io::prepareSerialClose(descriptor);
    hungUp = true;
    return ::close(descriptor.exchange(-1)) == 0;
}

void SerialPort::initConfig() {
    if (!configured) {
        tcgetattr(descriptor, &settings);
        settings.c_iflag = IGNBRK | SoftwareFlow;
        settings.c_oflag = 0;
        settings.c_lflag = 0;
        settings.c_cflag = CREAD | HUPCL | CLOCAL | CS8 | CSTOPB | PARENB | PARODD | CRTSCTS;
        std::fill(std::begin(settings.c_cc), std::end(settings.c_cc), static_cast<cc_t>(0));
        settings.c_cc[VMIN] = 1;
        settings.c_cc[VTIME] = 0;
        apply();
        configured = true;
    }
    apply();  // every open; a first one has the settings applied twice, as it always has been
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags != -1)
        fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
}

bool SerialPort::apply() {
    tcsetattr(descriptor, TCSANOW, &settings);
    unapplied = false;
    return true;  // a line that refuses a setting keeps working with what it had
}

/// Every setter changes what the line stands at, and what a refused value has left behind.
void SerialPort::loadSettings() {
    if (!unapplied)
        tcgetattr(descriptor, &settings);
}

bool SerialPort::refuse() {
    unapplied = true;
    return false;
}

bool SerialPort::setSpeed(unsigned long baud) {
    for (const auto& speed : Speeds) {
        if (speed.baud == baud) {
            loadSettings();
            cfsetispeed(&settings, speed.code);
            cfsetospeed(&settings, speed.code);
            return apply();
        }
    }
    return false;
}

bool SerialPort::setParity(S_PARITY_CONTROL parity) {
    loadSettings();
    settings.c_cflag &= ~static_cast<tcflag_t>(PARENB | PARODD);
    switch (parity) {
    case S_PARITY_NONE: return apply();
    case S_PARITY_ODD: settings.c_cflag |= PARENB | PARODD; return apply();
    case S_PARITY_EVEN: settings.c_cflag |= PARENB; return apply();
    }
    return refuse();
}

bool SerialPort::setCharBits(int bits) {
    constexpr tcflag_t Sizes[] = {CS5, CS6, CS7, CS8};
    loadSettings();
    settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE);
    if (bits < 5 || bits > 8)
        return refuse();
    settings.c_cflag |= Sizes[bits - 5];
    return apply();
}

bool SerialPort::setStopBits(int bits) {
    loadSettings();
    settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB);
    if (bits < 1 || bits > 2)
        return refuse();
    if (bits == 2)
        settings.c_cflag |= CSTOPB;
    return apply();
}

bool SerialPort::setFlowControl(S_FLOW_CONTROL flow) {
    loadSettings();
    settings.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
    settings.c_iflag &= ~SoftwareFlow;
    if (flow < S_FLOW_NONE || flow > S_FLOW_BOTH)
        return refuse();
    if (flow & S_FLOW_SOFTWARE)
        settings.c_iflag |= SoftwareFlow;
    if (flow & S_FLOW_HARDWARE)
        settings.c_cflag |= CRTSCTS;
    return apply();
}

bool SerialPort::getCTS() {
    int lines = 0;
    return ioctl(descriptor, TIOCMGET, &lines) == 0 && (lines & TIOCM_CTS);
}

void SerialPort::setRTS(bool on) { setModemLine(TIOCM_RTS, on); }

void SerialPort::setDTR(bool on) { setModemLine(TIOCM_DTR, on); }

void SerialPort::setModemLine(int line, bool on) {
    int lines = 0;
    if (ioctl(descriptor, TIOCMGET, &lines) != 0)
        return;
    lines = on ? lines | line : lines & ~line;
    ioctl(descriptor, TIOCMSET, &lines);
}

void SerialPort::sendBreak() { tcsendbreak(descriptor, 0); }

int SerialPort::readData(void* buf, unsigned int len) {
    return static_cast<int>(::read(descriptor, buf, len));
}

int SerialPort::writeData(void const* buf, unsigned int len) {
    return static_cast<int>(::write(descriptor, buf, len));
}

/// What of `events`, POLLHUP and the error conditions has come within the time-out; 0 when nothing
/// has or the poll failed. A signal starts the full time-out again.
short SerialPort::pollFor(short events, int timeoutMs) {
    pollfd line{descriptor, events, 0};
    if (line.fd < 0 && timeoutMs < 0)
        return 0;  // nothing can come from a closed port: do not wait for ever
    int count = 0;
    do
        count = ::poll(&line, 1, timeoutMs);
    while (count < 0 && errno == EINTR);
    return static_cast<short>(count > 0 ? line.revents : 0);
}

bool SerialPort::isPortOpen() {
    if (hungUp)
        return false;
    const short events = pollFor(POLLHUP, 0);
    if (events & POLLHUP)
        hungUp = true;
    return events != 0 && !(events & POLLHUP);
}

int SerialPort::numInputPending(int timeoutMs) {
    const short events = pollFor(POLLIN, timeoutMs);
    if (events & POLLHUP) {
        hungUp = true;
        return 0;
    }
    if (!(events & POLLIN))
        return 0;
    int count = 0;
    return ioctl(descriptor, FIONREAD, &count) < 0 ? 1 : count;
}

bool SerialPort::isInputPending(int timeoutMs) {
    const auto wanted = static_cast<short>(hungUp ? POLLIN : POLLIN | POLLHUP);
    const short events = pollFor(wanted, timeoutMs);
    if (events & POLLHUP) {
        hungUp = true;
        return false;
    }
    return events != 0;
}

int SerialPort::flushInput() { return tcflush(descriptor, TCIFLUSH); }

int SerialPort::flushOutput() { return tcflush(descriptor, TCOFLUSH); }

int SerialPort::drainOutput() { return tcdrain(descriptor); }
