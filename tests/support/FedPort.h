#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace test {

/// A kind of serial port whose input comes from memory. Without input left, every wait counts as
/// its full time-out and ends without input.
template <class Port> class FedPort : public Port {
public:
    explicit FedPort(std::string_view bytes = {}) : input(bytes) {}

    void feed(std::string_view bytes) { input += bytes; }
    size_t left() const { return input.size() - taken; }

    bool isInputPending(int timeoutMs) override { return numInputPending(timeoutMs) > 0; }

    int numInputPending(int timeoutMs) override {
        if (left() == 0)
            waitedMs += timeoutMs;
        return static_cast<int>(left());
    }

    int readData(void* buf, unsigned int len) override {
        const size_t count = std::min<size_t>({len, left(), pieceSize});
        std::memcpy(buf, input.data() + taken, count);
        taken += count;
        return static_cast<int>(count);
    }

    int writeData(void const* buf, unsigned int len) override {
        ++writes;
        if (refuseWrites)
            return -1;
        const size_t count = std::min<size_t>(len, room);
        room -= count;
        written.append(static_cast<const char*>(buf), count);
        return static_cast<int>(count);
    }

    size_t pieceSize = SIZE_MAX;  // the most that one read gives
    int waitedMs = 0;
    std::string written;
    int writes = 0;
    size_t room = SIZE_MAX;  // for what is written
    bool refuseWrites = false;

private:
    std::string input;
    size_t taken = 0;
};

}  // namespace test
