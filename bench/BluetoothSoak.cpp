// Calls a device over and over, with data each time and an end from either side, and starts the
// driver anew now and then: whatever the process holds must be the same at the end as at the start.
// The number of calls is the argument, 500 without.

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "bench/Process.h"
#include "bluetooth/BluetoothSPPConnection.h"
#include "bluetooth/LMXBluetoothModule.h"
#include "sim/Terminal.h"

namespace {

constexpr char Address[] = "00:1A:7D:DA:71:13";
constexpr int WarmUp = 50;  // what is kept once made: buffers, thread stacks
constexpr int NewDriverEvery = 25;

bool callOnce(sim::Terminal& terminal, bool dropped) {
    BluetoothModule& driver = *BluetoothModule::pModule;
    const std::unique_ptr<BluetoothSPPConnection> connection(
        driver.createSPPConnection(reinterpret_cast<const unsigned char*>(Address), 1, ""));
    char data[1000] = {};
    if (!connection || !connection->connect() ||
        connection->writeData(data, sizeof data) != static_cast<int>(sizeof data))
        return false;
    for (size_t back = 0; back < sizeof data;) {
        connection->isInputPending(1);
        back += static_cast<size_t>(connection->readData(data, sizeof data));
    }
    if (dropped)
        terminal.air().drop(Address);
    terminal.journal().clear();
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const int calls = argc > 1 ? atoi(argv[1]) : 500;
    sim::Terminal terminal;
    terminal.air().present(Address, "echo");
    int failures = 0;
    bench::Held before{};
    std::unique_ptr<BluetoothModule> driver;
    for (int call = 0; call < calls + WarmUp; ++call) {
        if (call % NewDriverEvery == 0) {
            driver.reset();
            failures += LMXBluetoothModule::initialize() ? 0 : 1;
            driver.reset(BluetoothModule::pModule);
        }
        failures += callOnce(terminal, call % 2 == 0) ? 0 : 1;
        if (call + 1 == WarmUp)
            before = bench::Held::now();
    }
    const bench::Held after = bench::Held::now();
    printf("%d calls, %d failures; %s\n", calls, failures, after.since(before).c_str());
    driver.reset();
    return failures == 0 && after.isNotMoreThan(before) ? 0 : 1;
}
