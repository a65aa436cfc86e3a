// The demonstration: a small application as any other. It scans barcodes while the trigger is
// pulled and shows, as a dated line each, what the library tells it.

#include <climits>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "gui/GuiLibrary.h"
#include "gui/GuiWindow.h"
#include "power/PowerManager.h"
#include "power/SystemEvents.h"
#include "power/SystemMonitor.h"
#include "scanner/BarcodeReader.h"
#include "scanner/ScanRecord.h"

namespace {

constexpr int TriggerKey = 59;  // F1, which the trigger sends

void show(const char* text) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char date[32];
    strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &local);
    printf("%s.%03ld  application: %s\n", date, now.tv_nsec / 1'000'000, text);
    fflush(stdout);
}

template <class... Values> void show(const char* format, Values... values) {
    char text[256];
    snprintf(text, sizeof text, format, values...);
    show(text);
}

int numberIn(void* data) { return static_cast<int>(reinterpret_cast<intptr_t>(data)); }

/// Pulling the trigger lights the aim, letting it go starts the scan.
class DemoWindow : public GuiWindow {
public:
    explicit DemoWindow(BarcodeReader& barcodeReader) : GuiWindow(0), reader(barcodeReader) {}

    bool onKeyDown(int key) override {
        if (key != TriggerKey)
            return false;
        show("trigger pulled");
        return reader.initRead();
    }

    bool onKeyUp(int key) override {
        if (key != TriggerKey)
            return false;
        show("trigger let go, scanning");
        return reader.startRead();
    }

    void onSystemEvent(int code, void* data) override {
        switch (code) {
        case events::BatteryCapacity:
            show("event %d: battery at %d %%", code, numberIn(data));
            break;
        case events::BatteryEmpty: show("event %d: battery empty", code); break;
        case events::Temperature:
            if (numberIn(data) == INT_MIN)
                show("event %d: no temperature", code);
            else
                show("event %d: %d degrees", code, numberIn(data));
            break;
        case events::ScannedCode: {
            const auto* const record = static_cast<const ScanRecord*>(data);
            show("event %d: source %d, code %s", code, record->source, record->data);
            break;
        }
        case events::ShutdownRequest:
            show("event %d: shut down, good bye", code);
            GuiLibrary::quit();
            break;
        default: break;
        }
    }

private:
    BarcodeReader& reader;
};

}  // namespace

int main() {
    if (!PowerManager::initPowerManager()) {
        show("no power manager");
        return 1;
    }
    show("power manager up");
    SystemMonitor::initialize();
    {
        BarcodeReader reader;
        show(reader.initialize() ? "barcode reader ready" : "no barcode reader");
        DemoWindow window(reader);
        GuiLibrary::run();
        reader.shutdown();
    }
    SystemMonitor::shutdown();
    PowerManager::deinitPowerManager();
    return 0;
}
