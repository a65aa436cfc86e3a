// The demonstration: a small application as any other. It scans barcodes while the trigger is
// pulled, keeps a GPRS link up, and shows, as a dated line each, what the library tells it.

#include "DemoWindow.h"
#include "Show.h"
#include "foundation/Thread.h"
#include "gui/GuiLibrary.h"
#include "network/GprsConnection.h"
#include "power/PowerManager.h"
#include "power/SystemMonitor.h"

namespace {

constexpr int LongestStartMs = 120'000;

/// The GPRS link of the application, brought up beside the windows: that takes a while.
class Link : public Thread {
public:
    Link() : gprs({"1234", 0, "internet", "", ""}) { start(); }

    ~Link() override {
        stop(LongestStartMs, false);
        gprs.disconnect();
        gprs.shutdown();
    }

    void run() override {
        if (!gprs.initialize() || !gprs.connect())
            demo::show("no GPRS link");
    }

private:
    GprsConnection gprs;
};

void runWindows() {
    BarcodeReader reader;
    demo::show(reader.initialize() ? "barcode reader ready" : "no barcode reader");
    demo::DemoWindow window(reader);
    Link link;
    GuiLibrary::run();
    reader.shutdown();
}

}  // namespace

int main() {
    if (!PowerManager::initPowerManager()) {
        demo::show("no power manager");
        return 1;
    }
    demo::show("power manager up");
    SystemMonitor::initialize();
    runWindows();
    SystemMonitor::shutdown();
    PowerManager::deinitPowerManager();
    demo::show("all down");
    return 0;
}
