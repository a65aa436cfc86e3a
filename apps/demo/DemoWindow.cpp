#include "DemoWindow.h"

#include <climits>
#include <cstdint>

#include "Show.h"
#include "gui/GuiLibrary.h"
#include "network/NetworkEventListener.h"
#include "power/SystemEvents.h"
#include "scanner/ScanRecord.h"

namespace demo {
namespace {

constexpr int TriggerKey = 59;  // F1, which the trigger sends
constexpr int EndKey = 1;       // Esc

int numberIn(void* data) { return static_cast<int>(reinterpret_cast<intptr_t>(data)); }

const char* nameOf(NetworkEvent event) {
    switch (event) {
    case NETWORK_DOWN: return "NETWORK_DOWN";
    case NETWORK_UP: return "NETWORK_UP";
    case NETWORK_CONNECTING: return "NETWORK_CONNECTING";
    }
    return "?";
}

}  // namespace

bool DemoWindow::onKeyDown(int key) {
    if (key != TriggerKey)
        return false;
    show("trigger pulled");
    return reader.initRead();
}

bool DemoWindow::onKeyUp(int key) {
    if (key == EndKey) {
        note("good bye");
        GuiLibrary::quit();
        return true;
    }
    if (key != TriggerKey)
        return false;
    show("trigger let go, scanning");
    return reader.startRead();
}

void DemoWindow::onSystemEvent(int code, void* data) {
    switch (code) {
    case events::StatusText: show("event %d: %s", code, static_cast<const char*>(data)); break;
    case events::ErrorText:
        show("event %d: error: %s", code, static_cast<const char*>(data));
        break;
    case events::SignalQuality: show("event %d: signal at %d %%", code, numberIn(data)); break;
    case events::NetworkStateChange:
        show("event %d: %s", code, nameOf(static_cast<NetworkEvent>(numberIn(data))));
        break;
    case events::BatteryCapacity: show("event %d: battery at %d %%", code, numberIn(data)); break;
    case events::BatteryEmpty: show("event %d: battery empty", code); break;
    case events::Temperature:
        if (numberIn(data) == INT_MIN)
            show("event %d: no temperature", code);
        else
            show("event %d: %d degrees", code, numberIn(data));
        break;
    case events::ScannedCode: {
        const auto* const record = static_cast<const ScanRecord*>(data);
        note("event %d: source %d, code %s", code, record->source, record->data);
        break;
    }
    case events::ShutdownRequest:
        note("event %d: shut down, good bye", code);
        GuiLibrary::quit();
        break;
    default: break;
    }
}

}  // namespace demo
