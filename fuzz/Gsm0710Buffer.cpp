// The 07.10 frame buffer: whatever is poured in, in whatever pieces, only frames that stand in the
// stream come out, the counts stay right, and after resynchronize() there is room again. Each piece
// of the input begins with its size.

#include "gsm/Gsm0710Buffer.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "gsm/Gsm0710Frame.h"

namespace {

constexpr unsigned Room = 4095;
constexpr unsigned LongestFrame = 133;

void require(bool holds) {
    if (!holds)
        std::abort();
}

/// The part of the stream that has not gone by: what is stored, and the frame just taken out.
void checkFrame(const Gsm0710Frame& frame, const std::string& stream) {
    require(frame.length <= 127 && (frame.length == 0) == !frame.data);
    std::string octets{static_cast<char>(frame.control), static_cast<char>(frame.length * 2 + 1)};
    for (unsigned i = 0; i < frame.length; ++i)
        octets += static_cast<char>(frame.data[i]);
    bool found = false;
    for (size_t at = stream.find(octets, 2); at != std::string::npos && !found;
         at = stream.find(octets, at + 1)) {
        const size_t end = at + octets.size();
        const bool coversData = (frame.control & 0xEF) == 0x03;
        const std::string covered = stream.substr(at - 1, coversData ? octets.size() + 1 : 3);
        const unsigned char fcs =
            Gsm0710Buffer::makeCheckSum(reinterpret_cast<const unsigned char*>(covered.data()),
                                        static_cast<unsigned>(covered.size()));
        found = stream[at - 2] == '\xF9' &&
                static_cast<uint8_t>(stream[at - 1]) >> 2 == frame.channel &&
                end + 1 < stream.size() && stream[end] == static_cast<char>(fcs) &&
                stream[end + 1] == '\xF9';
    }
    require(found);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto buffer = std::make_unique<Gsm0710Buffer>();
    std::string stream;
    for (size_t at = 0; at < size;) {
        const size_t length = std::min<size_t>(size_t{data[at]} * 4, size - at - 1);
        ++at;
        const unsigned free = buffer->getFree();
        const unsigned stored = buffer->write(data + at, static_cast<unsigned>(length));
        require(stored == std::min<size_t>(length, free));
        stream.append(reinterpret_cast<const char*>(data + at), stored);
        at += length;
        do {
            for (;;) {
                const unsigned before = buffer->getAllocated();
                const std::unique_ptr<Gsm0710Frame> frame(buffer->read());
                require(buffer->getAllocated() <= before);
                require(buffer->getAllocated() + buffer->getFree() == Room);
                if (!frame)
                    break;
                checkFrame(*frame, stream.substr(stream.size() - before));
            }
        } while (data[at - length - 1] % 2 == 0 && buffer->resynchronize());
        require(data[at - length - 1] % 2 || buffer->getAllocated() <= LongestFrame);
    }
    return 0;
}
