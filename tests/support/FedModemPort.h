#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "io/ModemPort.h"

namespace test {

/// A modem port whose input comes from memory. Without input left, every wait counts as its full
/// time-out and ends without input.
class FedModemPort : public ModemPort {
public:
    explicit FedModemPort(std::string_view bytes = {}) : input(bytes) {}

    void feed(std::string_view bytes) { input += bytes; }
    size_t left() const { return input.size() - taken; }

    bool isInputPending(int timeoutMs) override { return numInputPending(timeoutMs) > 0; }

    int numInputPending(int timeoutMs) override {
        if (left() == 0)
            waitedMs += timeoutMs;
        return static_cast<int>(left());
    }

    int readData(void* buf, unsigned int len) override {
        const size_t count = std::min<size_t>(len, left());
        std::memcpy(buf, input.data() + taken, count);
        taken += count;
        return static_cast<int>(count);
    }

    int writeData(void const* buf, unsigned int len) override {
        written.append(static_cast<const char*>(buf), len);
        ++writes;
        return refuseWrites ? -1 : static_cast<int>(len);
    }

    int waitedMs = 0;
    std::string written;
    int writes = 0;
    bool refuseWrites = false;

private:
    std::string input;
    size_t taken = 0;
};

}  // namespace test
