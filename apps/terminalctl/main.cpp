// terminalctl: the terminal's devices and links from the command line. It is an application as any
// other, built on the library alone.

#include <cstdio>

#include "Commands.h"
#include "Interruption.h"

namespace ctl {
namespace {

constexpr double LongestSeconds = 1'000'000;

constexpr struct {
    const char* name;
    const char* what;
    void (*declare)(Choice& choice, CLI::App& command);
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

Status perform(const Choice& choice, bool asJson) {
    Output output(asJson);
    const Interruption interruption;
    try {
        return choice.carryOut(output);
    } catch (const Failure& failure) {
        std::fprintf(stderr, "terminalctl: %s\n", failure.what());
        return failure.status;
    }
}

int run(int argc, const char* const* argv) {
    CLI::App app("Shows and controls the devices and links of the terminal.", "terminalctl");
    Choice choice;
    bool asJson = false;
    app.fallthrough();
    app.require_subcommand(1);
    app.set_version_flag("--version", TERMINALCTL_VERSION);
    app.add_flag("--json", asJson, "tells each thing as a JSON object in a line");
    app.footer(
        "Ends with 0 when all is well, 1 when a device, file or link has failed, 2 for wrong "
        "usage, 3 when\nthe time is over or there is nothing of what was asked for.");
    for (const auto& command : Commands)
        command.declare(choice, *app.add_subcommand(command.name, command.what));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Done : WrongUsage;
    }
    return perform(choice, asJson);
}

}  // namespace

CLI::App& commandIn(CLI::App& group, const char* name, const char* what) {
    group.require_subcommand(1);
    return *group.add_subcommand(name, what);
}

void declareSeconds(CLI::App& command, const char* name, double& seconds, const char* what) {
    command.add_option(name, seconds, what)->check(CLI::Range(0.0, LongestSeconds));
}

int millisecondsOf(double seconds) { return static_cast<int>(seconds * 1000); }

}  // namespace ctl

int main(int argc, char** argv) { return ctl::run(argc, argv); }
