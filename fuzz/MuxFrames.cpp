// The text-command Bluetooth module's frames and answers: parsing against a second reading of the
// same rules, and the driver's reading from a line, which ends whatever comes. The first byte of
// the input says in which pieces it comes.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "bluetooth/BlueGigaBluetoothModule.h"
#include "bluetooth/BluetoothSPPConnection.h"

namespace {

constexpr int Links[] = {0, 2, 7};

void require(bool holds) {
    if (!holds)
        std::abort();
}

struct Bench {
    int farEnd = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    std::string path = grantpt(farEnd) == 0 && unlockpt(farEnd) == 0 ? ptsname(farEnd) : "";
    BlueGigaBluetoothModule driver{path.c_str()};
    std::vector<BluetoothSPPConnection*> connections;

    Bench() {
        require(driver.open());
        for (const int link : Links) {
            const auto* const anywhere = reinterpret_cast<const unsigned char*>("\0\0\0\0\0\0");
            connections.push_back(driver.createSPPConnection(anywhere, 0, ""));
            require(connections.back() && connections.back()->setLocalPort(link));
        }
    }

    std::string taken(size_t index) {
        std::string data(1024, '\0');
        const int count = connections[index]->readData(data.data(), 1024);
        data.resize(static_cast<size_t>(count));
        return data;
    }

    void send(std::string_view bytes) {
        require(write(farEnd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    }

    bool readAnswer(std::string& answer) {
        driver.lock();
        const bool came = driver.readAnswer(&answer, 0);
        driver.unlock();
        return came;
    }

    /// Whatever has come, the driver ends in text mode.
    void leaveMux() {
        send(std::string("\xBF\xFF\0\x08READY.\r\n\0", 13));
        require(driver.disableMUX());
        char sent[256];
        while (read(farEnd, sent, sizeof sent) > 0)
            continue;
    }
};

/// What the frames at the beginning of `bytes` bring, read in another way than the driver does.
/// Where they end; 0 when one is bad.
size_t framesIn(std::string_view bytes, std::string (&data)[3], std::string& text) {
    const auto at = [&](size_t i) { return i < bytes.size() ? uint8_t(bytes[i]) : 0; };
    for (size_t end = 0;;) {
        const size_t start = end < bytes.size() ? bytes.find('\xBF', end) : end;
        if (start >= bytes.size())
            return end;
        const int link = at(start + 1);
        const auto size = static_cast<size_t>(at(start + 3));
        if (at(start + 4 + size) != 255 - link || (link > 8 && link != 255))
            return 0;
        std::string payload(bytes.substr(std::min(start + 4, bytes.size()), size));
        payload.resize(size);
        for (size_t i = 0; i < 3; ++i)
            data[i] += link == Links[i] ? payload : "";
        if (link == 255)
            text += payload;
        end = start + size + 5;
    }
}

void checkParsing(Bench& bench, std::string_view bytes) {
    std::vector<char> buffer(bytes.begin(), bytes.end());  // to its last byte
    std::string answer;
    const unsigned end =
        bench.driver.parseMuxFrame(&answer, buffer.data(), 0, static_cast<unsigned>(buffer.size()));
    std::string data[3];
    std::string text;
    require(end == framesIn(bytes, data, text));
    for (size_t i = 0; i < 3; ++i)
        require(bench.taken(i) == data[i].substr(0, 1023));
    require(answer.size() <= text.size());
}

void checkReading(Bench& bench, std::string_view bytes, size_t pieceSize) {
    while (!bytes.empty()) {
        const size_t size = std::min(pieceSize, bytes.size());
        bench.send(bytes.substr(0, size));
        bytes.remove_prefix(size);
        std::string answer;
        for (int reads = 0; bench.readAnswer(answer); ++reads)
            require(reads < 3000);
    }
    bench.leaveMux();
    for (size_t i = 0; i < 3; ++i)
        bench.taken(i);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Bench bench;
    if (size < 2 || size > 2500)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    checkParsing(bench, bytes);
    checkReading(bench, bytes, data[0] == 0 ? size : data[0]);
    return 0;
}
