// The demonstration: a small application as any other. It says who the terminal is, reads its
// settings from the memory card and keeps a log there, scans barcodes while the trigger is pulled,
// keeps the link up that the terminal is equipped for, and shows, as a dated line each, what the
// library tells it.

#include "Bluetooth.h"
#include "DemoWindow.h"
#include "Link.h"
#include "Settings.h"
#include "Show.h"
#include "config/SysInfo.h"
#include "gui/GuiLibrary.h"
#include "power/PowerManager.h"
#include "power/SystemMonitor.h"
#include "scanner/ScannerInput.h"

namespace {

void introduce() {
    demo::show("this is %s, model %s, hardware %s, firmware %s", SysInfo::getSerialNumber(),
               SysInfo::getModelType(), SysInfo::getHardwareRevision(),
               SysInfo::getFirmwareVersion());
}

void runWindows(const demo::Settings& settings) {
    demo::show(ScannerInput::initialize() ? "readers ready" : "no readers");
    demo::DemoWindow window;
    {
        const demo::Link link(settings);
        GuiLibrary::run();
    }
    ScannerInput::shutdown();
}

}  // namespace

int main() {
    introduce();
    if (!PowerManager::initPowerManager()) {
        demo::show("no power manager");
        return 1;
    }
    demo::show("power manager up");
    demo::Settings settings;
    if (settings.read("/mnt/mmc/demo.ini"))
        demo::note("start %d with this card", settings.starts);
    else
        demo::show("no settings on the memory card");
    SystemMonitor::initialize();
    runWindows(settings);
    if (settings.kind == "bluetooth")
        demo::takeCall(settings.bluetooth);
    SystemMonitor::shutdown();
    demo::note("all down");
    PowerManager::deinitPowerManager();
    return 0;
}
