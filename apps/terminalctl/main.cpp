// terminalctl: the terminal's devices and links from the command line. It is an application as any
// other, built on the library alone.

#include <cstdio>

#include "Commands.h"
#include "Interruption.h"

namespace ctl {
namespace {

constexpr struct {
    const char* name;
    const char* what;
    void (*declare)(Command command);
} Commands[] = {
    {"power", "power states, display, lights, buzzer and clock", declarePower},
    {"battery", "charge, voltage and temperature", declareBattery},
    {"scan", "reads barcodes and tags", declareScan},
    {"rfid", "reads tags", declareRfid},
    {"gprs", "the link over the cellular network", declareGprs},
    {"wlan", "the link over the wireless network", declareWlan},
    {"bt", "Bluetooth", declareBluetooth},
    {"ini", "values in files of settings", declareIni},
    {"log", "lines in log files", declareLog},
    {"info", "what terminal this is", declareInfo},
};

void declareCommands(Command all) {
    for (const auto& command : Commands)
        command.declare(all.add(command.name, command.what));
}

Status perform(const Action& action, bool asJson) {
    Output output(asJson);
    const Interruption interruption;
    try {
        const Status status = action(output);
        if (output.hasFailed())
            throw Failure(Failed, "standard output cannot be written");
        return status;
    } catch (const Failure& failure) {
        std::fprintf(stderr, "terminalctl: %s\n", failure.what());
        return failure.status;
    }
}

}  // namespace
}  // namespace ctl

int main(int argc, char** argv) { return ctl::run(argc, argv, ctl::declareCommands, ctl::perform); }
