// A serial link over the text-command Bluetooth module: data there and back in frames through the
// driver, against the same bytes through the bare pseudo-terminal; and what the module's driver
// costs while nothing happens.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "bench/Process.h"
#include "bluetooth/BlueGigaBluetoothModule.h"
#include "bluetooth/BluetoothSPPConnection.h"
#include "sim/Terminal.h"

namespace {

constexpr char Phone[] = "00:1A:7D:DA:71:13";
constexpr unsigned Piece = 124;  // what a frame takes
constexpr int Pieces = 2000;
constexpr int Rounds = 7;
constexpr int IdleSeconds = 10;

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// One piece after the other, each back before the next is sent. The driver reads them with a
/// command that the module answers at once: a read without a final line waits for more.
double overLink(BlueGigaBluetoothModule& driver, BluetoothSPPConnection& link) {
    char piece[Piece] = {};
    const auto begin = Clock::now();
    for (int i = 0; i < Pieces; ++i) {
        driver.lock();
        driver.writeCommand(piece, Piece, link.getLocalPort());
        driver.setAnswerType("READY.\r\n", 8);
        while (link.getFifoCnt() == 0)
            driver.readAnswer(nullptr, 1000);
        driver.unlock();
        while (link.readData(piece, Piece) == Piece)
            continue;
    }
    return Pieces * Piece / secondsSince(begin);
}

/// The same through an echo at the far end of a bare pseudo-terminal, on a thread as the module is.
double overBareLine() {
    const int farEnd = posix_openpt(O_RDWR | O_NOCTTY);
    grantpt(farEnd);
    unlockpt(farEnd);
    SerialPort port;
    port.open(ptsname(farEnd));
    port.setFlowControl(S_FLOW_NONE);
    std::thread echo([farEnd] {
        char bytes[1024];
        for (long count = 0; (count = read(farEnd, bytes, sizeof bytes)) > 0;) {
            if (bytes[0] == 'q' || write(farEnd, bytes, static_cast<size_t>(count)) != count)
                return;
        }
    });
    char piece[Piece + 5] = {};
    const auto begin = Clock::now();
    for (int i = 0; i < Pieces; ++i) {
        port.writeData(piece, sizeof piece);
        for (size_t moved = 0; moved < sizeof piece;) {
            port.isInputPending(1000);
            moved += static_cast<size_t>(port.readData(piece, sizeof piece));
        }
    }
    const double rate = Pieces * Piece / secondsSince(begin);
    port.writeData("q", 1);
    echo.join();
    close(farEnd);
    return rate;
}

/// As an application does it: it writes, waits for the echo, and asks again when none has come,
/// since the reader's wake-up may have been lost. Seconds for each.
double written(BluetoothSPPConnection& link, int& repeats) {
    constexpr int Count = 20;
    char piece[Piece] = {};
    const auto begin = Clock::now();
    for (int i = 0; i < Count; ++i) {
        for (link.writeData(piece, Piece); !link.isInputPending(1000); link.writeData(piece, Piece))
            ++repeats;
        while (link.readData(piece, Piece) > 0)
            continue;
    }
    return secondsSince(begin) / Count;
}

}  // namespace

int main() {
    sim::Terminal terminal;
    terminal.fitTextModule();
    terminal.air().present(Phone, "Phone");
    BlueGigaBluetoothModule driver("/dev/ttyAT1");
    if (!driver.open())
        return 1;
    terminal.textModule().setEnable(true);
    terminal.textModule().setSupply(true);
    if (!driver.isAlive() || !driver.enableMUX())
        return 1;
    BluetoothSPPConnection* const link =
        driver.createSPPConnection(reinterpret_cast<const unsigned char*>(Phone), 0, "");
    if (!link->connect())
        return 1;

    const long before = bench::wakeUps();
    sleep(IdleSeconds);
    printf("idle, with a link: %.1f wake-ups per second\n",
           static_cast<double>(bench::wakeUps() - before) / IdleSeconds);
    int repeats = 0;
    const double perEcho = written(*link, repeats);
    printf("a write and its echo through the connection's own calls: %.0f ms, %d asked for again\n",
           perEcho * 1000, repeats);
    double bare = 0;
    double framed = 0;
    for (int round = 0; round < Rounds; ++round) {  // the best of each: others share the machine
        bare = std::max(bare, overBareLine());
        framed = std::max(framed, overLink(driver, *link));
    }
    printf("there and back through driver and module: %.0f kB/s, %.2f times the %.0f kB/s of the "
           "bare pseudo-terminal\n",
           framed / 1000, framed / bare, bare / 1000);
    driver.deleteSPPConnection(link);
    driver.close();
}
