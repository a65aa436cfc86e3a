#include "sim/devices/RadioMux.h"

#include <algorithm>

#include "gsm/Gsm0710Protocol.h"
#include "sim/Text.h"

namespace sim {
namespace {

constexpr char Flag = toChar(gsm0710::Flag);
constexpr size_t LongestHeader = 4;  // address, control and a length of two octets

// Types of control-channel messages as commands; the response lacks the bit.
constexpr uint8_t CommandBit = gsm0710::CommandResponseBit;
enum Message : uint8_t {
    ParameterNegotiation = 0x83,
    PowerSaving = 0x43,
    CloseDown = gsm0710::CloseDown | CommandBit,
    Test = gsm0710::Test | CommandBit,
    FlowOn = 0xA3,
    FlowOff = 0x63,
    ModemStatus = gsm0710::ModemStatus | CommandBit,
    PortNegotiation = 0x93,
    LineStatus = 0x53,
    ServiceNegotiation = 0xD3
};

// Bits of a modem status' signal octet that the terminal does not use.
constexpr uint8_t FlowControl = 0x02;
constexpr uint8_t DataValid = 0x80;

/// One octet more in the check sequence: x^8 + x^2 + x + 1, the lowest bit first.
constexpr uint8_t checked(uint8_t sum, uint8_t octet) {
    sum = static_cast<uint8_t>(sum ^ octet);
    for (int bit = 0; bit < 8; ++bit)
        sum = static_cast<uint8_t>((sum >> 1) ^ (sum & 1 ? gsm0710::FcsPolynomial : 0));
    return sum;
}

uint8_t checkSequence(std::string_view octets) {
    uint8_t sum = gsm0710::FcsStart;
    for (const char octet : octets)
        sum = checked(sum, static_cast<uint8_t>(octet));
    return static_cast<uint8_t>(~sum);
}

/// The frame types whose check sequence covers the information as well.
bool coversInformation(uint8_t control) { return (control & ~gsm0710::PollFinal) == gsm0710::Ui; }

std::string lengthField(size_t length) {
    if (length <= gsm0710::MaxLength)
        return {
            toChar(static_cast<unsigned>(length << gsm0710::LengthShift) | gsm0710::ExtensionBit)};
    return {toChar(static_cast<unsigned>(length & gsm0710::MaxLength) << gsm0710::LengthShift),
            toChar(static_cast<unsigned>(length >> 7))};
}

}  // namespace

std::string RadioMux::encode(const RadioFrame& frame) {
    const unsigned address = static_cast<unsigned>(frame.channel << gsm0710::AddressShift) |
                             (frame.commandBit ? CommandBit : 0U) | gsm0710::ExtensionBit;
    const std::string header =
        std::string{toChar(address), toChar(frame.control)} + lengthField(frame.data.size());
    const uint8_t check =
        checkSequence(coversInformation(frame.control) ? header + frame.data : header);
    return Flag + header + frame.data + toChar(check) + Flag;
}

void RadioMux::start(unsigned longestInformation) {
    for (Channel& channel : channels) {
        const bool wasRefused = channel.isRefused;
        channel = {};
        channel.isRefused = wasRefused;
    }
    pending.clear();
    mostInformation = longestInformation;
    allHeld = false;
    isActive = true;
}

void RadioMux::received(std::string_view bytes) {
    pending += bytes;
    size_t done = 0;
    while (isActive) {
        const size_t taken = takeFrame(std::string_view(pending).substr(done));
        if (taken == 0)
            break;
        done += taken;
    }
    pending.erase(0, done);
}

/// Handles the first frame of `bytes`, or passes what cannot belong to one. How many octets are
/// done with; 0: more are needed. A closing flag stays: it may be the next frame's opening one.
/// Whatever is wrong with a frame costs its opening flag only, so that one hidden in it is found.
size_t RadioMux::takeFrame(std::string_view bytes) {
    if (bytes.empty())
        return 0;
    if (bytes[0] != Flag)
        return std::min(bytes.find(Flag), bytes.size());
    bytes.remove_prefix(1);
    if (!bytes.empty() && bytes[0] == Flag)
        return 1;
    if (bytes.size() < LongestHeader)
        return 0;

    size_t header = 3;
    size_t length = byteAt(bytes, 2) >> gsm0710::LengthShift;
    if (!(byteAt(bytes, 2) & gsm0710::ExtensionBit)) {
        length |= static_cast<size_t>(byteAt(bytes, 3)) << 7;
        header = 4;
    }
    if (length > mostInformation) {
        user.note("frame too long");
        return 1;
    }
    const size_t end = header + length;  // of what comes before the check sequence
    if (bytes.size() < end + 2)
        return 0;
    const uint8_t control = byteAt(bytes, 1);
    const bool isGood =
        byteAt(bytes, end) ==
            checkSequence(bytes.substr(0, coversInformation(control) ? end : header)) &&
        bytes[end + 1] == Flag;
    if (!isGood) {
        user.note("bad frame");
        return 1;
    }
    const uint8_t address = byteAt(bytes, 0);
    handle({static_cast<uint8_t>(address >> gsm0710::AddressShift), control,
            (address & CommandBit) != 0, std::string(bytes.substr(header, length))});
    return 1 + end + 1;
}

void RadioMux::handle(const RadioFrame& frame) {
    if (frameHook && frameHook(frame))
        return;
    const uint8_t type = frame.control & static_cast<uint8_t>(~gsm0710::PollFinal);
    if (frame.channel >= Channels) {
        if (type == gsm0710::Sabm || type == gsm0710::Disc)
            respond(frame.channel, gsm0710::Dm, true);
    } else if (type == gsm0710::Ui || type == gsm0710::Uih) {
        handleInformation(frame);
    } else {
        handleUnnumbered(frame, channels[frame.channel]);
    }
}

void RadioMux::handleUnnumbered(const RadioFrame& frame, Channel& channel) {
    const bool poll = (frame.control & gsm0710::PollFinal) != 0;
    switch (frame.control & ~gsm0710::PollFinal) {
    case gsm0710::Sabm:
        if (channel.isRefused || (frame.channel != 0 && !channels[0].isOpen)) {
            respond(frame.channel, gsm0710::Dm, poll);
            break;
        }
        respond(frame.channel, gsm0710::Ua, poll);
        setOpen(frame.channel, true);
        break;
    case gsm0710::Disc:
        respond(frame.channel, channel.isOpen ? gsm0710::Ua : gsm0710::Dm, poll);
        setOpen(frame.channel, false);
        break;
    case gsm0710::Ua:
        if (channel.isOpening)
            setOpen(frame.channel, true);
        channel.isOpening = false;
        break;
    case gsm0710::Dm:
        channel.isOpening = false;
        setOpen(frame.channel, false);
        break;
    default: break;
    }
}

void RadioMux::handleInformation(const RadioFrame& frame) {
    if (!channels[frame.channel].isOpen)
        respond(frame.channel, gsm0710::Dm, true);
    else if (frame.channel == 0)
        handleMessages(frame.data);
    else
        user.channelData(frame.channel, frame.data);
}

void RadioMux::handleMessages(std::string_view messages) {
    while (isActive && messages.size() >= 2) {
        const uint8_t type = byteAt(messages, 0);
        size_t at = 1;
        size_t length = 0;
        for (unsigned shift = 0; at < messages.size() && shift < 28; shift += 7) {
            const uint8_t octet = byteAt(messages, at++);
            length |= static_cast<size_t>(octet >> 1) << shift;
            if (octet & gsm0710::ExtensionBit)
                break;
        }
        if (length > messages.size() - at) {
            user.note("bad message");
            return;
        }
        handleMessage(type, messages.substr(at, length));
        messages.remove_prefix(at + length);
    }
}

void RadioMux::handleMessage(uint8_t type, std::string_view value) {
    if (!(type & CommandBit)) {
        user.note("response " + hex(type));
        if (type == gsm0710::CloseDown)
            end();
        return;
    }
    const auto response = static_cast<uint8_t>(type & ~CommandBit);
    switch (type) {
    case CloseDown:
        sendMessage(response, value);
        end();
        break;
    case ModemStatus:
        holdChannel(value);
        sendMessage(response, value);
        break;
    case FlowOn:
    case FlowOff:
        allHeld = type == FlowOff;
        sendMessage(response, value);
        break;
    case ParameterNegotiation:
    case PowerSaving:
    case Test:
    case PortNegotiation:
    case LineStatus:
    case ServiceNegotiation: sendMessage(response, value); break;
    default: sendMessage(gsm0710::NonSupported, {reinterpret_cast<const char*>(&type), 1});
    }
    sendWaiting();
}

void RadioMux::holdChannel(std::string_view modemStatus) {
    if (modemStatus.size() < 2)
        return;
    const unsigned channel = byteAt(modemStatus, 0) >> gsm0710::AddressShift;
    if (channel < Channels)
        channels[channel].isHeld = (byteAt(modemStatus, 1) & FlowControl) != 0;
}

void RadioMux::sendWaiting() {
    for (uint8_t number = 1; number < Channels; ++number) {
        std::string waiting;
        waiting.swap(channels[number].waiting);
        sendData(number, waiting);
    }
}

void RadioMux::sendData(uint8_t channel, std::string_view bytes) {
    Channel& receiver = channels.at(channel);
    if (!receiver.isOpen)
        return;
    if (receiver.isHeld || allHeld) {
        receiver.waiting += bytes;
        return;
    }
    std::string frames;
    while (!bytes.empty()) {
        const size_t size = std::min<size_t>(bytes.size(), mostInformation);
        frames += encode({channel, gsm0710::Uih, false, std::string(bytes.substr(0, size))});
        bytes.remove_prefix(size);
    }
    if (!frames.empty())
        user.transmit(frames);
}

void RadioMux::sendFrame(const RadioFrame& frame) { user.transmit(encode(frame)); }

void RadioMux::sendMessage(uint8_t type, std::string_view value) {
    sendFrame(
        {0, gsm0710::Uih, false, toChar(type) + lengthField(value.size()) + std::string(value)});
}

void RadioMux::respond(uint8_t channel, uint8_t control, bool final) {
    sendFrame(
        {channel, static_cast<uint8_t>(control | (final ? gsm0710::PollFinal : 0)), true, {}});
}

void RadioMux::open(uint8_t channel) {
    channels.at(channel).isOpening = true;
    sendFrame({channel, gsm0710::Sabm | gsm0710::PollFinal, false, {}});
}

void RadioMux::close(uint8_t channel) {
    sendFrame({channel, gsm0710::Disc | gsm0710::PollFinal, false, {}});
    setOpen(channel, false);
}

void RadioMux::closeDown() { sendMessage(CloseDown, {}); }

void RadioMux::setOpen(uint8_t channel, bool open) {
    Channel& changed = channels.at(channel);
    if (changed.isOpen == open)
        return;
    changed.isOpen = open;
    changed.isHeld = false;
    changed.waiting.clear();
    if (!open && channel == 0) {
        end();
        return;
    }
    if (!open) {
        user.channelClosed(channel);
        return;
    }
    user.channelOpened(channel);
    if (channel != 0) {
        const char status[] = {toChar(static_cast<unsigned>(channel << gsm0710::AddressShift) |
                                      CommandBit | gsm0710::ExtensionBit),
                               toChar(DataValid | gsm0710::ReadyToReceive |
                                      gsm0710::ReadyToCommunicate | gsm0710::ExtensionBit)};
        sendMessage(ModemStatus, {status, sizeof status});
    }
}

void RadioMux::end() {
    if (!isActive)
        return;
    isActive = false;
    for (Channel& channel : channels)
        channel.isOpen = false;
    pending.clear();
    user.multiplexingEnded();
}

}  // namespace sim
