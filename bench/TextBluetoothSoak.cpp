// Calls a device over the text-command module over and over, with data each time and an end from
// either side, and opens the driver anew now and then: whatever the process holds must be the same
// at the end as at the start. The number of calls is the first argument, 500 without; how fast the
// terminal's time passes the second.

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "bench/Process.h"
#include "bluetooth/BlueGigaBluetoothModule.h"
#include "bluetooth/BluetoothSPPConnection.h"
#include "sim/Terminal.h"

namespace {

constexpr char Address[] = "00:1A:7D:DA:71:13";
constexpr int WarmUp = 50;  // what is kept once made: buffers, thread stacks
constexpr int NewDriverEvery = 25;
constexpr double BootingSpeed = 5;
constexpr double Speed = 30;
constexpr int Tries = 20;

std::unique_ptr<BlueGigaBluetoothModule> makeDriver(sim::Terminal& terminal) {
    auto driver = std::make_unique<BlueGigaBluetoothModule>("/dev/ttyAT1");
    terminal.clock().setSpeed(BootingSpeed);
    terminal.textModule().setReset(true);
    terminal.textModule().setReset(false);
    if (!driver->open() || !driver->isAlive() || !driver->enableMUX())
        return nullptr;
    return driver;
}

bool callOnce(sim::Terminal& terminal, BluetoothModule& driver, bool dropped) {
    BluetoothSPPConnection* const link =
        driver.createSPPConnection(reinterpret_cast<const unsigned char*>(Address), 0, "");
    char data[100] = {};
    int back = 0;
    if (link && link->connect()) {
        // What the module answers too late for the read after a write waits for the next one.
        for (int tries = 0; tries < Tries && back == 0; ++tries) {
            link->writeData(data, sizeof data);
            link->isInputPending(1000);
            back = link->readData(data, sizeof data);
        }
    }
    if (dropped)
        terminal.air().drop(Address);
    driver.deleteSPPConnection(link);
    terminal.journal().clear();
    return back > 0 && !terminal.air().find(Address)->link;
}

}  // namespace

int main(int argc, char** argv) {
    const int calls = argc > 1 ? atoi(argv[1]) : 500;
    const double speed = argc > 2 ? atof(argv[2]) : Speed;
    sim::Terminal terminal;
    terminal.fitTextModule();
    terminal.textModule().setEnable(true);
    terminal.textModule().setSupply(true);
    terminal.air().present(Address, "echo");
    int failures = 0;
    bench::Held before{};
    std::unique_ptr<BlueGigaBluetoothModule> driver;
    for (int call = 0; call < calls + WarmUp; ++call) {
        if (call % NewDriverEvery == 0) {
            driver.reset();
            driver = makeDriver(terminal);
            if (!driver)
                return 1;
            terminal.clock().setSpeed(speed);
        }
        failures += callOnce(terminal, *driver, call % 2 == 0) ? 0 : 1;
        if (call + 1 == WarmUp)
            before = bench::Held::now();
    }
    const bench::Held after = bench::Held::now();
    printf("%d calls, %d failures; %s\n", calls, failures, after.since(before).c_str());
    return failures == 0 && after.isNotMoreThan(before) ? 0 : 1;
}
