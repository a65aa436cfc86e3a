// The FIFO of a serial link over Bluetooth against boost's queue for one producer and one consumer,
// of the same size, in pieces of 1, 32 and 512 bytes: from one thread to another, and within one,
// where nothing counts but the work itself.

#include "bluetooth/SppFifo.h"

#include <boost/lockfree/spsc_queue.hpp>
#include <string>

#include "bench/Ratio.h"

namespace {

constexpr unsigned Most = 512;

/// boost's queue with the names of ours.
struct BoostQueue {
    boost::lockfree::spsc_queue<char, boost::lockfree::capacity<bluetooth::SppFifo::Capacity>>
        queue;

    size_t append(const char* data, unsigned len) { return queue.push(data, len); }
    size_t take(char* buf, unsigned len) { return queue.pop(buf, len); }
};

/// One of the two threads appends and the other one takes, a piece per round each.
template <class Queue> void between(benchmark::State& state) {
    static Queue queue;
    const auto size = static_cast<unsigned>(state.range(0));
    char piece[Most] = {};
    const bool appends = state.thread_index() == 0;
    for (auto _ : state) {
        for (unsigned done = 0; done < size;)
            done += static_cast<unsigned>(appends ? queue.append(piece + done, size - done)
                                                  : queue.take(piece + done, size - done));
        benchmark::ClobberMemory();
    }
}

template <class Queue> void within(benchmark::State& state) {
    static Queue queue;
    const auto size = static_cast<unsigned>(state.range(0));
    char piece[Most] = {};
    for (auto _ : state) {
        benchmark::DoNotOptimize(queue.append(piece, size));
        benchmark::DoNotOptimize(queue.take(piece, size));
        benchmark::ClobberMemory();
    }
}

template <class Queue> void add(const std::string& name) {
    benchmark::RegisterBenchmark((name + "/between").c_str(), between<Queue>)
        ->Arg(1)
        ->Arg(32)
        ->Arg(512)
        ->Threads(2)
        ->UseRealTime();
    benchmark::RegisterBenchmark((name + "/within").c_str(), within<Queue>)
        ->Arg(1)
        ->Arg(32)
        ->Arg(512);
}

}  // namespace

int main(int argc, char** argv) {
    add<bluetooth::SppFifo>("fifo");
    add<BoostQueue>("boost");
    bench::RatioReporter reporter;
    bench::runAll(argc, argv, reporter);
    for (const std::string size : {"1", "32", "512"}) {
        const std::string threads = "/between/" + size + "/real_time/threads:2";
        reporter.printTimes("fifo" + threads, "boost" + threads, 1.0);
        reporter.printTimes("fifo/within/" + size, "boost/within/" + size, 1.0);
    }
    return reporter.status();
}
