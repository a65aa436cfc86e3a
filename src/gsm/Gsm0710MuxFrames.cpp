// What the engine does with frames and with the programs' data.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

#include "gsm/Gsm0710Buffer.h"
#include "gsm/Gsm0710Frame.h"
#include "gsm/Gsm0710Mux.h"
#include "gsm/Gsm0710Protocol.h"

namespace {

constexpr unsigned int MaxRead = 512;
constexpr int ProgramMs = 1000;
constexpr int DrainMs = 1000;

/// Data for a program that has come in successive frames.
struct Piece {
    int channel = 0;
    unsigned int length = 0;
    std::array<unsigned char, MaxRead> octets{};

    bool hasRoomFor(const Gsm0710Frame& frame) const {
        return frame.channel == channel && frame.length <= octets.size() - length;
    }
    void append(const Gsm0710Frame& frame) {
        channel = frame.channel;
        std::copy_n(frame.data.get(), frame.length, octets.data() + length);
        length += frame.length;
    }
};

bool isForProgram(const Gsm0710Frame& frame) {
    return frame.channel != gsm0710::ControlChannel &&
           (frame.matchControl(gsm0710::Uih) || frame.matchControl(gsm0710::Ui));
}

bool isHungUp(int fd) {
    pollfd asked{fd, 0, 0};
    return ::poll(&asked, 1, 0) > 0 && (asked.revents & POLLHUP);
}

/// One write. The number of octets taken, 0 when it failed.
unsigned int writeOnce(int fd, const unsigned char* data, unsigned int length) {
    ssize_t count = 0;
    do
        count = ::write(fd, data, length);
    while (count < 0 && errno == EINTR);
    return static_cast<unsigned int>(std::max<ssize_t>(count, 0));
}

}  // namespace

bool Gsm0710Mux::isCongested() {
    MutexGuard held(writeMutex);
    return !output.isEmpty();
}

/// False when the line refuses to take anything, ever.
bool Gsm0710Mux::flushOutput() {
    MutexGuard held(writeMutex);
    return output.flush(physicalFd.get());
}

/// Before the end: gives the module a last second to take what it has not taken.
void Gsm0710Mux::drainOutput() {
    const foundation::TimeLimit limit(DrainMs);
    while (isCongested() && limit.leftMs() > 0 && isOutputReady(physicalFd.get(), limit.leftMs())) {
        if (!flushOutput())
            return;
    }
}

/// Sends data as frames of at most 31 octets; without data, one frame. What the line does not take
/// at once follows by itself. The number of octets accepted: all or, when too much is still on its
/// way, none.
unsigned int Gsm0710Mux::writeToPhysical(int channel, const unsigned char* data,
                                         unsigned int length, unsigned char control) {
    MutexGuard held(writeMutex);
    if (!output.add(static_cast<unsigned char>(channel), control, data, length))
        return 0;
    output.flush(physicalFd.get());
    return length;
}

/// Whether a program has the port open, as far as is known: one that was found closed is looked at
/// again. What is written to a closed port would be read by the next program.
bool Gsm0710Mux::isListening(int channel) {
    const io::FileDescriptor& master = virtualFds[channel - 1];
    if (!master.isOpen())
        return false;
    const auto bit = static_cast<size_t>(channel);
    if (abandoned[bit] && !isHungUp(master.get()))
        abandoned.reset(bit);
    return !abandoned[bit];
}

/// Hands data to a program. The number of octets taken: the rest is dropped when the program takes
/// nothing for a second, and from then on at once, until it takes something again.
unsigned int Gsm0710Mux::writeToVirtual(const unsigned char* data, unsigned int length,
                                        int channel) {
    if (length == 0 || channel < 1 || channel > channelCount || !isListening(channel))
        return 0;
    const int master = virtualFds[channel - 1].get();
    const auto bit = static_cast<size_t>(channel);
    unsigned int written = writeOnce(master, data, length);
    if (written > 0)
        unread.reset(bit);
    while (written < length && !unread[bit] && !stopRequested()) {
        const unsigned int more = isOutputReady(master, ProgramMs)
                                      ? writeOnce(master, data + written, length - written)
                                      : 0;
        unread[bit] = more == 0;
        written += more;
    }
    return written;
}

void Gsm0710Mux::handlePhysicalInput(Gsm0710Buffer& buffer, StopType& stopType) {
    unsigned char octets[MaxRead];
    const ssize_t count = ::read(physicalFd.get(), octets, std::min(MaxRead, buffer.getFree()));
    if (count <= 0) {
        rest(0);
        return;
    }
    buffer.write(octets, static_cast<unsigned int>(count));
    handleSerialFrames(buffer, stopType);
}

/// What comes for one program in one go is handed over in one go.
void Gsm0710Mux::handleSerialFrames(Gsm0710Buffer& buffer, StopType& stopType) {
    Piece piece;
    const auto deliver = [&] {
        writeToVirtual(piece.octets.data(), piece.length, piece.channel);
        piece.length = 0;
    };
    do {
        while (const auto frame = std::unique_ptr<Gsm0710Frame>(buffer.read())) {
            const bool continues = isForProgram(*frame);
            if (!continues || !piece.hasRoomFor(*frame))
                deliver();
            if (continues)
                piece.append(*frame);
            else
                handleFrame(*frame, stopType);
        }
    } while (buffer.resynchronize());
    deliver();
}

/// A frame that is not data for a program.
void Gsm0710Mux::handleFrame(Gsm0710Frame& frame, StopType& stopType) {
    const bool isControl = frame.channel == gsm0710::ControlChannel;
    std::bitset<ChannelCount>::reference open = channelOpen[static_cast<size_t>(frame.channel)];
    const auto answer = [&](gsm0710::FrameType type) {
        writeToPhysical(frame.channel, nullptr, 0, gsm0710::withPollFinal(type));
    };

    switch (static_cast<gsm0710::FrameType>(frame.control & ~gsm0710::PollFinal)) {
    case gsm0710::Ui:
    case gsm0710::Uih: handleCommand(frame, stopType); break;
    case gsm0710::Sabm:
        open = true;
        answer(gsm0710::Ua);
        break;
    case gsm0710::Ua: open.flip(); break;  // agrees to our SABM or to our DISC
    case gsm0710::Dm:
        if (!open && isControl)
            stopType = Refused;
        open = false;
        break;
    case gsm0710::Disc:
        answer(open ? gsm0710::Ua : gsm0710::Dm);
        if (open && isControl)
            stopType = ClosedByModule;
        open = false;
        break;
    }
}

/// A message on the control channel. Modem status and responses need nothing: a program's data is
/// held back by the line's own flow control.
void Gsm0710Mux::handleCommand(Gsm0710Frame& frame, StopType& stopType) {
    if (!frame.data || frame.matchCmdType(gsm0710::ModemStatus) ||
        !(frame.data[0] & gsm0710::CommandResponseBit))
        return;

    const bool closesDown = frame.matchCmdType(gsm0710::CloseDown);
    if (closesDown || frame.matchCmdType(gsm0710::Test)) {
        if (closesDown)
            stopType = ClosedByModule;
        frame.data[0] &= static_cast<unsigned char>(~gsm0710::CommandResponseBit);
        writeToPhysical(gsm0710::ControlChannel, frame.data.get(), frame.length, gsm0710::Uih);
        return;
    }

    // The second octet of this answer is no length: zero is what modules expect of us.
    std::array<unsigned char, 2 + gsm0710::MaxLength> answer{gsm0710::NonSupported, 0};
    unsigned int length = 2;
    for (unsigned int i = 0; i < frame.length; ++i) {
        answer[length++] = frame.data[i];
        if (frame.data[i] & gsm0710::ExtensionBit)
            break;
    }
    writeToPhysical(gsm0710::ControlChannel, answer.data(), length, gsm0710::Uih);
}

/// Takes what a program has written, if the line has room for all it could be.
void Gsm0710Mux::handleVirtualInput(int fd) {
    if (isCongested())
        return;
    int channel = 1;
    while (channel <= channelCount && virtualFds[channel - 1].get() != fd)
        ++channel;
    unsigned char octets[MaxRead];
    const ssize_t count = ::read(fd, octets, sizeof octets);
    if (count > 0) {
        writeToPhysical(channel, octets, static_cast<unsigned int>(count), gsm0710::Uih);
        return;
    }
    abandoned.set(static_cast<size_t>(channel));
    rest(channel);
}
