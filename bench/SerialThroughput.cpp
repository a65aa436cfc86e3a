// Bytes through a serial port in pieces of 512 against bare read() and write() on the same
// pseudo-terminal.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "bench/Ratio.h"
#include "io/SerialPort.h"

namespace {

constexpr unsigned Piece = 512;

/// A port on one end of a pseudo-terminal, the other end at hand.
struct Line {
    int farEnd = posix_openpt(O_RDWR | O_NOCTTY);
    SerialPort port;
    int bare = -1;

    Line() {
        grantpt(farEnd);
        unlockpt(farEnd);
        const char* const path = ptsname(farEnd);
        port.open(path);
        port.setSpeed(115200);
        port.setCharBits(8);
        port.setParity(S_PARITY_NONE);
        port.setStopBits(1);
        port.setFlowControl(S_FLOW_NONE);
        bare = open(path, O_RDWR | O_NOCTTY);
    }
};

Line& line() {
    static Line only;
    return only;
}

/// One piece to the far end and one back, through the given calls of the near end.
template <class Read, class Write> void exchange(benchmark::State& state, Read read, Write write) {
    char piece[Piece] = {};
    for (auto _ : state) {
        for (size_t moved = 0; moved < Piece;)
            moved +=
                static_cast<size_t>(write(piece + moved, Piece - static_cast<unsigned>(moved)));
        for (size_t moved = 0; moved < Piece;)
            moved += static_cast<size_t>(::read(line().farEnd, piece, Piece - moved));
        if (::write(line().farEnd, piece, Piece) != static_cast<ssize_t>(Piece))
            state.SkipWithError("the far end took less than a piece");
        for (size_t moved = 0; moved < Piece;)
            moved += static_cast<size_t>(read(piece, Piece - static_cast<unsigned>(moved)));
    }
    state.SetBytesProcessed(state.iterations() * 2 * Piece);
}

void serialPort(benchmark::State& state) {
    exchange(
        state, [](void* data, unsigned size) { return line().port.readData(data, size); },
        [](const void* data, unsigned size) { return line().port.writeData(data, size); });
}
BENCHMARK(serialPort);

void bareCalls(benchmark::State& state) {
    exchange(
        state, [](void* data, unsigned size) { return ::read(line().bare, data, size); },
        [](const void* data, unsigned size) { return ::write(line().bare, data, size); });
}
BENCHMARK(bareCalls);

}  // namespace

int main(int argc, char** argv) {
    bench::RatioReporter reporter;
    bench::runAll(argc, argv, reporter);
    reporter.printThroughput("serialPort", "bareCalls", 0.95);
    return reporter.status();
}
