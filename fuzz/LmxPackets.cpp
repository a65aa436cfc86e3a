// The packet reader: whatever is on the line, it gives out only packets that stand there, keeps to
// its buffer, and finds the packet that follows an end byte. What the port writes, it reads back.
// The first two bytes of the input are the buffer's size and the most that one read gives.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "bluetooth/LMXBluetoothPort.h"
#include "tests/support/FedPort.h"

namespace {

using Port = test::FedPort<LMXBluetoothPort>;

constexpr int WaitMs = 60'000;  // for the noise of a whole input on a slow machine

void require(bool holds) {
    if (!holds)
        std::abort();
}

struct Packet {
    int length;
    unsigned char type = 0, opcode = 0;
    std::string payload;
};

Packet take(Port& port, unsigned size) {
    std::vector<unsigned char> buffer(size);
    Packet packet{};
    packet.length = port.getPkt(&packet.type, &packet.opcode, buffer.data(), size, WaitMs);
    require(packet.length >= -4 && packet.length < static_cast<int>(size));
    if (packet.length >= 0)
        packet.payload.assign(buffer.begin(), buffer.begin() + packet.length);
    return packet;
}

/// The line up to where the reader stands ends with this packet, and it began where one may.
void checkStands(const Packet& packet, std::string_view line, std::string_view call) {
    const auto length = static_cast<unsigned>(packet.length);
    std::string bytes{'\x02', static_cast<char>(packet.type), static_cast<char>(packet.opcode),
                      static_cast<char>(length), static_cast<char>(length >> 8)};
    bytes += static_cast<char>(packet.type + packet.opcode + length);
    bytes += packet.payload + '\x03';
    require(line.size() >= bytes.size() && line.substr(line.size() - bytes.size()) == bytes);
    require(call.size() == bytes.size() || call[call.size() - bytes.size() - 1] == '\x03');
}

/// Whether a packet that fits stands where the first one begins in what is to be read.
bool standsAhead(std::string_view line, unsigned size) {
    size_t start = 0;
    while (start < line.size() &&
           !(line[start] == '\x02' && (start == 0 || line[start - 1] == '\x03')))
        ++start;
    line.remove_prefix(start);
    if (line.size() < 7)
        return false;
    const auto octet = [&](size_t at) { return static_cast<unsigned char>(line[at]); };
    const size_t length = octet(3) + 256U * octet(4);
    return length < size && line.size() >= length + 7 && octet(length + 6) == 3 &&
           octet(5) == (octet(1) + octet(2) + octet(3)) % 256;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > 4096)
        return 0;
    const unsigned bufferSize = data[0] * 2U;
    const std::string_view line(reinterpret_cast<const char*>(data + 2), size - 2);
    Port port(line);
    port.pieceSize = data[1] + size_t{1};
    while (port.left() > 0) {
        const size_t before = line.size() - port.left();
        const Packet packet = take(port, bufferSize);
        const size_t after = line.size() - port.left();
        require(after > before);
        require((packet.length >= 0) == standsAhead(line.substr(before), bufferSize));
        if (packet.length >= 0)
            checkStands(packet, line.substr(0, after), line.substr(before, after - before));
    }

    const size_t length = line.size() < 333 ? line.size() : 333;
    const size_t first = length * data[1] / 255;
    require(port.sendCmd(data[0], line.data(), static_cast<unsigned>(first), line.data() + first,
                         static_cast<unsigned>(length - first)));
    port.feed(port.written);
    const Packet packet = take(port, 334);
    require(packet.length == static_cast<int>(length) && packet.type == 'R' &&
            packet.opcode == data[0] && packet.payload == line.substr(0, length));
    return 0;
}
