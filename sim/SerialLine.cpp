#include "sim/SerialLine.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "sim/HostTime.h"
#include "sim/SerialFile.h"
#include "sim/Text.h"
#include "sim/posix/Descriptors.h"
#include "sim/posix/Real.h"

namespace sim {
namespace {

constexpr Nanoseconds Never = Nanoseconds::max();

/// With something to do later the clock is looked at this often: it may jump.
constexpr Nanoseconds LongestWait = std::chrono::milliseconds(10);

constexpr struct {
    speed_t code;
    int baud;
} Speeds[] = {
    {B0, 0},         {B110, 110},     {B300, 300},     {B600, 600},
    {B1200, 1200},   {B2400, 2400},   {B4800, 4800},   {B9600, 9600},
    {B19200, 19200}, {B38400, 38400}, {B57600, 57600}, {B115200, 115200},
};

std::string speedText(const termios& settings) {
    for (const auto& speed : Speeds) {
        if (speed.code == cfgetospeed(&settings))
            return std::to_string(speed.baud);
    }
    return "?";
}

char sizeText(const termios& settings) {
    switch (settings.c_cflag & CSIZE) {
    case CS5: return '5';
    case CS6: return '6';
    case CS7: return '7';
    default: return '8';
    }
}

char parityText(const termios& settings) {
    if (!(settings.c_cflag & PARENB))
        return 'N';
    return settings.c_cflag & PARODD ? 'O' : 'E';
}

void setNonBlocking(int fd) { fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK); }

}  // namespace

SerialLine::SerialLine(std::string lineName, Journal& lineJournal)
    : name(std::move(lineName)), journal(lineJournal),
      wakeUp(Descriptors::get().keep(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))) {
    if (!createPair() || wakeUp < 0)
        throw std::runtime_error("no pseudo-terminal for line " + name);
    server.start([this] { serve(); });
}

SerialLine::~SerialLine() {
    shutDown();
    closePair();
    Descriptors::get().closeKept(wakeUp);
}

void SerialLine::shutDown() {
    if (!server.isRunning())
        return;
    {
        const std::lock_guard<std::mutex> held(mutex);
        isStopping = true;
        peer = nullptr;
        consumed.notify_all();
    }
    wake();
    server.join();
}

bool SerialLine::createPair() {
    const HostTime hostTime;
    nearPath.clear();
    farEnd = Descriptors::get().keep(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    char path[64];
    if (farEnd < 0 || grantpt(farEnd) != 0 || unlockpt(farEnd) != 0 ||
        ptsname_r(farEnd, path, sizeof path) != 0)
        return false;
    nearPath = path;
    keeper = Descriptors::get().keep(SIM_REAL(open)(path, O_RDWR | O_NOCTTY | O_CLOEXEC));
    SIM_REAL(tcgetattr)(keeper, &lineSettings);
    cfsetispeed(&lineSettings, B9600);
    cfsetospeed(&lineSettings, B9600);
    lineSettings.c_cflag =
        (lineSettings.c_cflag & ~static_cast<tcflag_t>(CSIZE)) | CS8 | CREAD | HUPCL;
    setNonBlocking(farEnd);
    modemBits = TIOCM_CTS | TIOCM_DSR | TIOCM_CAR;
    writtenBytes = consumedBytes = 0;
    opens = 0;
    ++generation;
    return true;
}

void SerialLine::closePair() {
    Descriptors::get().closeKept(farEnd);
    Descriptors::get().closeKept(keeper);
    farEnd = keeper = -1;
}

void SerialLine::wake() const {
    const uint64_t one = 1;
    SIM_REAL(write)(wakeUp, &one, sizeof one);
}

void SerialLine::connect(LinePeer* newPeer) {
    std::unique_lock<std::mutex> held(mutex);
    peer = newPeer;
    if (!server.isCaller())
        consumed.wait(held, [this] { return !isDelivering; });
}

void SerialLine::send(std::string_view bytes, Nanoseconds delay) {
    const std::lock_guard<std::mutex> held(mutex);
    std::string altered;
    if (sentChange) {
        altered = bytes;
        sentChange(altered);
        bytes = altered;
    }
    if (delay <= Nanoseconds(0) && outbox.empty() && (pieceSize == 0 || bytes.size() <= pieceSize))
        bytes.remove_prefix(transmit(bytes));
    if (bytes.empty())
        return;
    Nanoseconds due = Clock::get().monotonic() + std::max(delay, Nanoseconds(0));
    if (!outbox.empty())
        due = std::max(due, outbox.back().due);
    for (; pieceSize > 0 && bytes.size() > pieceSize; due += pieceGap) {
        enqueue(std::string(bytes.substr(0, pieceSize)), due);
        bytes.remove_prefix(pieceSize);
    }
    enqueue(std::string(bytes), due);
    wake();
}

void SerialLine::enqueue(std::string bytes, Nanoseconds due) {
    outboxBytes += bytes.size();
    outbox.push_back({due, std::move(bytes)});
}

void SerialLine::fragment(size_t size, Nanoseconds gap) {
    const std::lock_guard<std::mutex> held(mutex);
    pieceSize = size;
    pieceGap = gap;
}

void SerialLine::distortSent(Distortion change) {
    const std::lock_guard<std::mutex> held(mutex);
    sentChange = std::move(change);
}

void SerialLine::garble(size_t count) {
    distortSent([count](std::string& bytes) mutable {
        const size_t size = std::min(count, bytes.size());
        count -= size;
        std::transform(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size), bytes.begin(),
                       garbledByte);
    });
}

void SerialLine::distortReceived(Distortion change) {
    const std::lock_guard<std::mutex> held(mutex);
    receivedChange = std::move(change);
}

void SerialLine::at(Nanoseconds due, std::function<void()> action) {
    const std::lock_guard<std::mutex> held(mutex);
    actions.emplace(due, std::move(action));
    wake();
}

/// How many bytes are gone: sent, or lost.
size_t SerialLine::transmit(std::string_view bytes) {
    size_t sent = 0;
    while (opens > 0 && sent < bytes.size()) {
        const ssize_t size = SIM_REAL(write)(farEnd, bytes.data() + sent, bytes.size() - sent);
        if (size <= 0)
            return lineSettings.c_cflag & CRTSCTS ? sent : bytes.size();
        sent += static_cast<size_t>(size);
    }
    return bytes.size();
}

/// What is on its way, and then what has arrived.
void SerialLine::discardSent(int nearEnd) const {
    SIM_REAL(tcflush)(farEnd, TCOFLUSH);
    SIM_REAL(tcflush)(nearEnd, TCIFLUSH);
}

/// What waits for room waits for the application that is there now.
void SerialLine::dropWaiting() {
    if (!isHeldBack)
        return;
    outbox.clear();
    outboxBytes = 0;
    isHeldBack = false;
}

void SerialLine::hangUp() {
    const std::lock_guard<std::mutex> held(mutex);
    closePair();
    outbox.clear();
    outboxBytes = 0;
    isHeldBack = false;
    createPair();
    consumed.notify_all();
    wake();
}

std::string SerialLine::settings() const {
    const termios now = attributes();
    std::string text =
        speedText(now) + " " + sizeText(now) + parityText(now) + (now.c_cflag & CSTOPB ? '2' : '1');
    if (now.c_cflag & CRTSCTS)
        text += " rtscts";
    if (now.c_iflag & IXON)
        text += " xonxoff";
    return text;
}

termios SerialLine::attributes() const {
    const std::lock_guard<std::mutex> held(mutex);
    return lineSettings;
}

bool SerialLine::isSetTo(int baud) const {
    const termios now = attributes();
    for (const auto& speed : Speeds) {
        if (speed.baud == baud)
            return speed.code == cfgetospeed(&now);
    }
    return true;
}

int SerialLine::modemLines() const {
    const std::lock_guard<std::mutex> held(mutex);
    return modemBits;
}

void SerialLine::setModemLine(int line, bool on) {
    const std::lock_guard<std::mutex> held(mutex);
    modemBits = on ? modemBits | line : modemBits & ~line;
}

bool SerialLine::isOpen() const {
    const std::lock_guard<std::mutex> held(mutex);
    return opens > 0;
}

std::shared_ptr<OpenFile> SerialLine::open(const std::string& path, int flags) {
    const std::lock_guard<std::mutex> held(mutex);
    const int fd = SIM_REAL(open)(nearPath.c_str(), flags | O_NOCTTY);
    if (fd < 0)
        return nullptr;
    if (++opens == 1) {
        const termios settings = SerialFile::pseudoTerminalPart(lineSettings);
        SIM_REAL(tcsetattr)(fd, TCSANOW, &settings);
        discardSent(fd);
        modemBits |= TIOCM_DTR | TIOCM_RTS;
    }
    return std::make_shared<SerialFile>(fd, path, *this, generation);
}

Nanoseconds SerialLine::sendDue() {
    isHeldBack = false;
    while (!outbox.empty()) {
        const Nanoseconds left = outbox.front().due - Clock::get().monotonic();
        if (left > Nanoseconds(0))
            return Clock::get().realDuration(left);
        std::string& bytes = outbox.front().bytes;
        const size_t gone = transmit(bytes);
        outboxBytes -= gone;
        if (gone < bytes.size()) {
            bytes.erase(0, gone);
            isHeldBack = true;
            return Never;
        }
        outbox.pop_front();
    }
    return Never;
}

Nanoseconds SerialLine::runDue(std::unique_lock<std::mutex>& held) {
    while (!actions.empty() && !isStopping) {
        const auto first = actions.begin();
        const Nanoseconds left = first->first - Clock::get().monotonic();
        if (left > Nanoseconds(0))
            return Clock::get().realDuration(left);
        const std::function<void()> action = std::move(first->second);
        actions.erase(first);
        held.unlock();
        action();
        held.lock();
    }
    return Never;
}

/// Reads under the lock, so that a flush of the application cannot come between a read and its
/// count.
void SerialLine::takeReceived(std::unique_lock<std::mutex>& held) {
    char buffer[4096];
    const ssize_t size = SIM_REAL(read)(farEnd, buffer, sizeof buffer);
    if (size <= 0)
        return;
    LinePeer* const receiver = peer;
    std::string_view bytes(buffer, static_cast<size_t>(size));
    std::string altered;
    if (receivedChange) {
        altered = bytes;
        receivedChange(altered);
        bytes = altered;
    }
    const unsigned from = generation;
    isDelivering = true;
    held.unlock();
    if (receiver && !bytes.empty())
        receiver->received(bytes);
    held.lock();
    isDelivering = false;
    // Only now: drained means that the peer has seen it. A flush may have discounted it already.
    if (generation == from)
        consumedBytes = std::min(consumedBytes + static_cast<size_t>(size), writtenBytes);
    consumed.notify_all();
}

void SerialLine::serve() {
    std::unique_lock<std::mutex> held(mutex);
    while (!isStopping) {
        const Nanoseconds nextAction = runDue(held);
        const Nanoseconds left = std::min(sendDue(), nextAction);
        const timespec wait = toTimespec(std::min(left, LongestWait));
        const int wanted = (outboxBytes > MostWaiting ? 0 : POLLIN) | (isHeldBack ? POLLOUT : 0);
        pollfd files[] = {{farEnd, static_cast<short>(wanted), 0}, {wakeUp, POLLIN, 0}};
        held.unlock();
        SIM_REAL(ppoll)(files, 2, left == Never ? nullptr : &wait, nullptr);
        uint64_t count = 0;
        if (files[1].revents)
            SIM_REAL(read)(wakeUp, &count, sizeof count);
        held.lock();
        if ((files[0].revents & POLLIN) && files[0].fd == farEnd)
            takeReceived(held);
    }
}

}  // namespace sim
