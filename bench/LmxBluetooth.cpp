// The packet driver of the Bluetooth module: its packets from and to memory against a loop that
// only adds up the same bytes; a serial link to a device that echoes against the bare
// pseudo-terminal; and what it costs while nothing happens.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "bench/Process.h"
#include "bench/Ratio.h"
#include "bluetooth/BluetoothSPPConnection.h"
#include "bluetooth/LMXBluetoothModule.h"
#include "bluetooth/LMXBluetoothPort.h"
#include "sim/Terminal.h"

namespace {

constexpr int Packets = 16;
constexpr unsigned Piece = 512;
constexpr int IdleSeconds = 10;

/// A line whose other end is memory: what has been written is read again, over and over.
class MemoryPort : public LMXBluetoothPort {
public:
    bool isInputPending(int) override { return true; }
    int readData(void* buf, unsigned int len) override {
        std::memcpy(buf, &bytes[at], len);
        at = at + len == bytes.size() ? 0 : at + len;
        return static_cast<int>(len);
    }
    int writeData(void const* buf, unsigned int len) override {
        std::memcpy(&bytes[at], buf, len);
        at += len;
        return static_cast<int>(len);
    }

    std::vector<unsigned char> bytes;
    size_t at = 0;
};

/// Room for the packets, and written full once.
std::unique_ptr<MemoryPort> makePort(unsigned payload) {
    auto port = std::make_unique<MemoryPort>();
    port->bytes.resize(Packets * (payload + 7));
    const std::vector<unsigned char> data(payload, 'p');
    for (int i = 0; i < Packets; ++i)
        port->sendCmd(0x10, data.data(), payload, nullptr, 0);
    port->at = 0;
    return port;
}

void read(benchmark::State& state) {
    const auto port = makePort(static_cast<unsigned>(state.range(0)));
    unsigned char buffer[334];
    for (auto _ : state) {
        for (int i = 0; i < Packets; ++i) {
            if (port->getPkt(nullptr, nullptr, buffer, sizeof buffer, 1000) != state.range(0))
                state.SkipWithError("a packet is missing");
            benchmark::DoNotOptimize(buffer);
        }
    }
}

void write(benchmark::State& state) {
    const auto payload = static_cast<unsigned>(state.range(0));
    const auto port = makePort(payload);
    const std::vector<unsigned char> data(payload, 'p');
    for (auto _ : state) {
        port->at = 0;
        for (int i = 0; i < Packets; ++i)
            port->sendCmd(0x10, data.data(), payload, nullptr, 0);
        benchmark::ClobberMemory();
    }
}

void sum(benchmark::State& state) {
    const auto port = makePort(static_cast<unsigned>(state.range(0)));
    for (auto _ : state) {
        const std::vector<unsigned char>& bytes = port->bytes;
        unsigned total = std::accumulate(bytes.begin(), bytes.end(), 0U);
        benchmark::DoNotOptimize(total);
    }
}

/// One piece there and back.
void link(benchmark::State& state) {
    sim::Terminal terminal;
    constexpr char Address[] = "00:1A:7D:DA:71:13";
    terminal.air().present(Address, "echo");
    if (!LMXBluetoothModule::initialize())
        return state.SkipWithError("no module");
    const std::unique_ptr<BluetoothModule> driver(BluetoothModule::pModule);
    std::unique_ptr<BluetoothSPPConnection> connection(
        driver->createSPPConnection(reinterpret_cast<const unsigned char*>(Address), 1, ""));
    if (!connection->connect())
        return state.SkipWithError("no link");
    char piece[Piece] = {};
    for (auto _ : state) {
        if (connection->writeData(piece, Piece) != static_cast<int>(Piece))
            return state.SkipWithError("a piece is lost");
        for (unsigned moved = 0; moved < Piece;) {
            connection->isInputPending(1);
            moved += static_cast<unsigned>(connection->readData(piece, Piece - moved));
        }
        terminal.journal().clear();
    }
}

void bareCalls(benchmark::State& state) {
    const int farEnd = posix_openpt(O_RDWR | O_NOCTTY);
    grantpt(farEnd);
    unlockpt(farEnd);
    const int nearEnd = open(ptsname(farEnd), O_RDWR | O_NOCTTY);
    termios settings{};
    tcgetattr(nearEnd, &settings);
    cfmakeraw(&settings);
    tcsetattr(nearEnd, TCSANOW, &settings);
    char piece[Piece] = {};
    const auto move = [&](int from, int to) {
        if (::write(from, piece, Piece) != static_cast<ssize_t>(Piece))
            state.SkipWithError("a piece is lost");
        for (size_t moved = 0; moved < Piece;)
            moved += static_cast<size_t>(::read(to, piece, Piece - moved));
    };
    for (auto _ : state) {
        move(nearEnd, farEnd);
        move(farEnd, nearEnd);
    }
    close(nearEnd);
    close(farEnd);
}

BENCHMARK(read)->Arg(2)->Arg(131)->Arg(333);
BENCHMARK(write)->Arg(2)->Arg(131)->Arg(333);
BENCHMARK(sum)->Arg(2)->Arg(131)->Arg(333);
BENCHMARK(link)->UseRealTime();
BENCHMARK(bareCalls)->UseRealTime();

void measureIdle() {
    sim::Terminal terminal;
    if (!LMXBluetoothModule::initialize())
        return;
    const std::unique_ptr<BluetoothModule> driver(BluetoothModule::pModule);
    sleep(1);
    const long before = bench::wakeUps();
    sleep(IdleSeconds);
    printf("idle: %.1f wake-ups per second, where the fixed poll asks for 1\n",
           static_cast<double>(bench::wakeUps() - before) / IdleSeconds);
}

}  // namespace

int main(int argc, char** argv) {
    bench::RatioReporter reporter;
    bench::runAll(argc, argv, reporter);
    for (const unsigned payload : {2U, 131U, 333U}) {
        const std::string size = "/" + std::to_string(payload);
        const double bytes = Packets * (payload + 7);
        for (const char* what : {"read", "write"}) {
            const double time = reporter.median(what + size);
            printf("%s%s: %.0f MB/s, %.2f times as long as the sum (%.0f MB/s)\n", what,
                   size.c_str(), bytes * 1000 / time, time / reporter.median("sum" + size),
                   bytes * 1000 / reporter.median("sum" + size));
        }
    }
    const double linkTime = reporter.median("link/real_time");
    const double bareTime = reporter.median("bareCalls/real_time");
    printf("link: %.2f MB/s each way, %.3f times what the bare pseudo-terminal moves (%.1f MB/s)\n",
           Piece * 1000 / linkTime, bareTime / linkTime, Piece * 1000 / bareTime);
    measureIdle();
    return reporter.status();
}
