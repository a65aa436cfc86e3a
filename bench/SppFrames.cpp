// Frames of the text-command Bluetooth module, made and parsed, against a loop that only sums the
// same bytes. The parsed data goes into the FIFO of a link, and from there to the application.

#include <cstdio>
#include <memory>
#include <numeric>
#include <string>

#include "bench/Ratio.h"
#include "bluetooth/BlueGigaBluetoothModule.h"
#include "bluetooth/BluetoothSPPConnection.h"

namespace {

constexpr unsigned Payload = 124;
constexpr unsigned Frames = 7;  // as many as a read of 1024 bytes brings
constexpr unsigned FrameSize = Payload + 5;

void frames(benchmark::State& state) {
    BlueGigaBluetoothModule driver("");
    const auto* const address = reinterpret_cast<const unsigned char*>("00:1A:7D:DA:71:13");
    BluetoothSPPConnection* const link = driver.createSPPConnection(address, 0, "");
    link->setLocalPort(2);
    char payload[Payload] = {};
    char buffer[Frames * FrameSize + 1];
    char taken[1024];
    for (auto _ : state) {
        for (unsigned i = 0; i < Frames; ++i)
            BlueGigaBluetoothModule::createMuxFrame(buffer + i * FrameSize, FrameSize - 1, payload,
                                                    Payload, 2);
        benchmark::ClobberMemory();
        if (driver.parseMuxFrame(nullptr, buffer, 0, Frames * FrameSize) != Frames * FrameSize)
            state.SkipWithError("a frame is bad");
        if (link->readData(taken, sizeof taken) != Frames * Payload)
            state.SkipWithError("data is missing");
    }
    state.SetBytesProcessed(state.iterations() * Frames * FrameSize);
    driver.deleteSPPConnection(link);
}

void sum(benchmark::State& state) {
    char buffer[Frames * FrameSize] = {};
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(std::accumulate(buffer, buffer + sizeof buffer, 0));
    }
    state.SetBytesProcessed(state.iterations() * Frames * FrameSize);
}

BENCHMARK(frames);
BENCHMARK(sum);

}  // namespace

int main(int argc, char** argv) {
    bench::RatioReporter reporter;
    bench::runAll(argc, argv, reporter);
    constexpr double Bytes = Frames * FrameSize;
    printf("frames made, parsed and delivered: %.0f MB/s; their bytes only summed: %.0f MB/s\n",
           Bytes * 1000 / reporter.median("frames"), Bytes * 1000 / reporter.median("sum"));
    return reporter.status();
}
