#include <climits>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <map>
#include <memory>

#include "Commands.h"
#include "Device.h"
#include "EventWindow.h"
#include "gui/GuiLibrary.h"
#include "power/SystemEvents.h"
#include "power/SystemMonitor.h"

namespace ctl {
namespace {

constexpr int HighestLevel = 255;
constexpr int HighestFrequency = 20'000;
constexpr int LongestToneMs = 60'000;
constexpr int LongestAlarm = 86'400;
constexpr char TimeFormat[] = "%Y-%m-%d %H:%M:%S";

const std::map<std::string, PowerState> Modes = {
    {"on", POWER_ON},           {"dimmed", POWER_DIMMED},
    {"dark", POWER_DARK},       {"display-off", POWER_DISPLAY_OFF},
    {"suspend", POWER_SUSPEND}, {"shutdown", POWER_SHUTDOWN},
};

/// Also of the state that nobody can ask for.
std::string nameOf(PowerState state) {
    for (const auto& [name, mode] : Modes) {
        if (mode == state)
            return name;
    }
    return "alarm-wake";
}

Status require(bool succeeded, const char* what) {
    return succeeded ? Done : throw Failure(Failed, std::string(what) + " does not answer");
}

/// What the device gives as a number, or no value.
Value known(int value, int missing) { return value == missing ? Value() : Value(value); }

std::string textOf(long time) {
    const time_t seconds = time;
    tm local{};
    char text[32];
    localtime_r(&seconds, &local);
    return {text, std::strftime(text, sizeof text, TimeFormat, &local)};
}

Status showStatus(Output& output) {
    const Device device;
    long time = 0;
    const bool isClockThere = device->rtcGetTime(&time);
    output.show("clock: {clock}\nlight: {light}\ntemperature: {degrees}\nUSB supply: {usb}\n"
                "radio module on: {radio}",
                {{"clock", isClockThere ? Value(textOf(time)) : Value()},
                 {"light", known(device->getAmbientLight(), -1)},
                 {"degrees", known(device->getTempReading(), INT_MIN)},
                 {"usb", device->isUsbConnected()},
                 {"radio", device->gprsGetPower()}});
    return Done;
}

Status changeMode(PowerState wanted, int wakeSeconds, Output& output) {
    const Device device;
    device->setPowerSaveSleep(wakeSeconds);
    device->setPowerMode(wanted);
    const PowerState reached = device->getCurrentState();
    output.show("now {state}", {{"state", nameOf(reached)}});
    const bool hasSlept = reached == POWER_ON || reached == POWER_ALARM_WAKE;
    if (reached != wanted && !(wanted == POWER_SUSPEND && hasSlept))
        throw Failure(Failed, "another state than that has been reached");
    return Done;
}

Status changeDisplay(const std::string& wanted) {
    const Device device;
    if (wanted == "on" || wanted == "off")
        return require(device->oledEnable(wanted == "on"), "the display");
    return require(
        device->oledSetBrightness(static_cast<unsigned char>(std::stoi(wanted, nullptr, 0))),
        "the display");
}

Status showOrSetClock(const std::string& wanted, Output& output) {
    tm local{};
    local.tm_isdst = -1;
    const char* const end = strptime(wanted.c_str(), TimeFormat, &local);
    const tm read = local;
    const auto seconds = static_cast<long>(mktime(&local));  // makes a 3 March of a 31 February
    if (!wanted.empty() && (!end || *end || local.tm_mday != read.tm_mday))
        throw Failure(WrongUsage, "not a time such as 2026-07-01 08:00:00: " + wanted);
    const Device device;
    if (!wanted.empty())
        require(device->rtcSetTime(seconds), "the clock");
    long time = 0;
    require(device->rtcGetTime(&time), "the clock");
    output.show("{clock}", {{"clock", textOf(time)}, {"seconds", time}});
    return Done;
}

/// Keeps the power policy running, until the terminal shuts down.
class PolicyWindow : public EventWindow {
public:
    using EventWindow::EventWindow;

    void onSystemEvent(int code, void* data) override {
        EventWindow::onSystemEvent(code, data);
        if (code == events::ShutdownRequest)
            finish();
    }
};

struct Policy {
    int dim = 5;
    int dark = 20;
    int displayOff = 30;
    int suspend = 60;
    int shutdown = 3600;
    double seconds = 0;
};

Status managePower(const Policy& policy, Output& output) {
    const Device device;
    PolicyWindow window(output);
    SystemMonitor::initialize();
    SystemMonitor* const monitor = SystemMonitor::getMonitor();
    monitor->setPowerDelays(policy.dim, policy.dark, policy.displayOff, policy.suspend,
                            policy.shutdown);
    window.run(policy.seconds);
    enum Counter { On, Dimmed, Dark, DisplayOff, Unused, Suspended };
    int counters[SystemMonitor::CounterCount];
    monitor->getPowerCounters(counters);
    SystemMonitor::shutdown();
    output.show("seconds on {on}, dimmed {dimmed}, dark {dark}, display off {display-off}, "
                "suspended {suspended}",
                {{"event", "counters"},
                 {"on", counters[On]},
                 {"dimmed", counters[Dimmed]},
                 {"dark", counters[Dark]},
                 {"display-off", counters[DisplayOff]},
                 {"suspended", counters[Suspended]}});
    return Done;
}

void declareMode(Command group) {
    const auto mode = std::make_shared<std::string>();
    const auto wakeSeconds = std::make_shared<int>(0);
    Command command = group.add("mode", "changes the power state");
    command.need("mode", *mode, "the state", among(Modes));
    command.take("--wake", *wakeSeconds, "seconds until the clock ends a suspend",
                 within(1, LongestAlarm));
    command.act([mode, wakeSeconds](Output& output) {
        return changeMode(Modes.at(*mode), *wakeSeconds, output);
    });
}

void declareLights(Command group) {
    const auto display = std::make_shared<std::string>();
    Command displayCommand = group.add("display", "switches the display, or dims it");
    displayCommand.need("to", *display, "on, off or a brightness of 0 to 255",
                        either(among({"on", "off"}), within(0, HighestLevel)));
    displayCommand.act([display](Output&) { return changeDisplay(*display); });

    const auto level = std::make_shared<int>();
    Command keyboardCommand = group.add("keyboard", "sets the keyboard's light");
    keyboardCommand.need("level", *level, "0 to 255", within(0, HighestLevel));
    keyboardCommand.act([level](Output&) {
        return require(Device()->keybSetBackLight(static_cast<unsigned char>(*level)) == 0,
                       "the keyboard");
    });

    const auto leds = std::make_shared<std::string>();
    Command ledCommand = group.add("leds", "switches the two LEDs");
    ledCommand.need("which", *leds, "none, first, second or both: those that shine",
                    among({"none", "first", "second", "both"}));
    ledCommand.act([leds](Output&) {
        const bool both = *leds == "both";
        return require(Device()->ledEnable(both || *leds == "first", both || *leds == "second") ==
                           0,
                       "the LED driver");
    });
}

void declareBeep(Command group) {
    struct Tone {
        int frequency = 0;
        int durationMs = 0;
    };
    const auto tone = std::make_shared<Tone>();
    Command command = group.add("beep", "sounds a tone");
    command.need("frequency", tone->frequency, "hertz", within(1, HighestFrequency));
    command.need("duration", tone->durationMs, "milliseconds", within(1, LongestToneMs));
    command.act([tone](Output&) {
        return require(Device()->buzzerPlay(tone->frequency, tone->durationMs) > 0, "the buzzer");
    });
}

void declareClock(Command group) {
    const auto time = std::make_shared<std::string>();
    Command clockCommand = group.add("clock", "shows the clock's time, which is local");
    clockCommand.take("--set", *time, "sets it: \"2026-07-01 08:00:00\"");
    clockCommand.act([time](Output& output) { return showOrSetClock(*time, output); });

    const auto alarm = std::make_shared<int>();
    Command alarmCommand = group.add("alarm", "sets the alarm that wakes the terminal");
    alarmCommand.need("seconds", *alarm, "from now on; 0 switches it off", within(0, LongestAlarm));
    alarmCommand.act([alarm](Output&) {
        const Device device;
        return require(*alarm > 0 ? device->rtcSetAlarm(*alarm) : device->rtcEnableAlarm(false),
                       "the clock");
    });
}

void declareManage(Command group) {
    const auto policy = std::make_shared<Policy>();
    Command command = group.add("manage", "steps the terminal down while nobody uses it");
    const struct {
        const char* name;
        int& seconds;
        const char* what;
    } delays[] = {
        {"--dim", policy->dim, "idle seconds until the display is dimmed, 0 for never"},
        {"--dark", policy->dark, "until it is dark"},
        {"--display-off", policy->displayOff, "until it is off"},
        {"--suspend", policy->suspend, "until the terminal sleeps"},
        {"--shutdown", policy->shutdown, "until it shuts down"},
    };
    for (const auto& delay : delays)
        command.take(delay.name, delay.seconds, delay.what, within(0, INT_MAX));
    command.takeSeconds("--for", policy->seconds, "ends after that many seconds");
    command.act([policy](Output& output) { return managePower(*policy, output); });
}

}  // namespace

void declarePower(Command command) {
    command.add("status", "shows clock, sensors and supplies").act(showStatus);
    declareMode(command);
    declareManage(command);
    declareLights(command);
    declareBeep(command);
    declareClock(command);
}

}  // namespace ctl
