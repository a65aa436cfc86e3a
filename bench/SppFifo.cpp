// The FIFO of a serial link over Bluetooth against boost's queue for one producer and one consumer,
// of the same size, in pieces of 1, 32 and 512 bytes.

#include "bluetooth/SppFifo.h"

#include <boost/lockfree/spsc_queue.hpp>
#include <string>

#include "bench/Ratio.h"

namespace {

constexpr unsigned Most = 512;

void fifo(benchmark::State& state) {
    static bluetooth::SppFifo queue;
    const auto size = static_cast<unsigned>(state.range(0));
    char piece[Most] = {};
    for (auto _ : state) {
        benchmark::DoNotOptimize(queue.append(piece, size));
        benchmark::DoNotOptimize(queue.take(piece, size));
        benchmark::ClobberMemory();
    }
}

void boostQueue(benchmark::State& state) {
    static boost::lockfree::spsc_queue<char,
                                       boost::lockfree::capacity<bluetooth::SppFifo::Capacity>>
        queue;
    const auto size = static_cast<unsigned>(state.range(0));
    char piece[Most] = {};
    for (auto _ : state) {
        benchmark::DoNotOptimize(queue.push(piece, size));
        benchmark::DoNotOptimize(queue.pop(piece, size));
        benchmark::ClobberMemory();
    }
}

BENCHMARK(fifo)->Arg(1)->Arg(32)->Arg(512);
BENCHMARK(boostQueue)->Arg(1)->Arg(32)->Arg(512);

}  // namespace

int main(int argc, char** argv) {
    bench::RatioReporter reporter;
    bench::runAll(argc, argv, reporter);
    for (const std::string size : {"1", "32", "512"})
        reporter.printTimes("fifo/" + size, "boostQueue/" + size, 1.0);
}
