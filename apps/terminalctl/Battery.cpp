#include <climits>
#include <memory>

#include "Commands.h"
#include "Device.h"
#include "EventWindow.h"
#include "power/SystemMonitor.h"

namespace ctl {
namespace {

struct Watch {
    bool isWanted = false;
    double seconds = 0;
};

Status showBattery(const Watch& watch, Output& output) {
    const Device device;
    int millivolts = 0;
    const int percent = device->getBatteryCapacity(&millivolts);
    const int degrees = device->getTempReading();
    output.show("{percent} %, {millivolts} mV, {degrees} degrees, USB supply: {usb}",
                {{"percent", percent < 0 ? Value() : Value(percent)},
                 {"millivolts", percent < 0 ? Value() : Value(millivolts)},
                 {"degrees", degrees == INT_MIN ? Value() : Value(degrees)},
                 {"usb", device->isUsbConnected()}});
    if (watch.isWanted) {
        EventWindow window(output);
        SystemMonitor::initialize();
        SystemMonitor::getMonitor()->setPowerDelays(0, 0, 0, 0, 0);
        window.run(watch.seconds);
        SystemMonitor::shutdown();
    }
    if (percent < 0)
        throw Failure(Failed, "the battery does not answer");
    return Done;
}

}  // namespace

void declareBattery(Command command) {
    const auto watch = std::make_shared<Watch>();
    command.takeFlag("--watch", watch->isWanted, "goes on telling charge and temperature");
    command.takeSeconds("--for", watch->seconds, "watches for that many seconds");
    command.act([watch](Output& output) { return showBattery(*watch, output); });
}

}  // namespace ctl
