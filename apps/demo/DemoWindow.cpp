#include "DemoWindow.h"

#include <climits>

#include "Show.h"
#include "gui/GuiLibrary.h"
#include "network/NetworkEventListener.h"
#include "power/SystemEvents.h"
#include "scanner/ScanRecord.h"
#include "scanner/ScannerInput.h"

namespace demo {
namespace {

constexpr int TriggerKey = 59;  // F1, which the trigger sends
constexpr int EnterKey = 28;
constexpr int EndKey = 1;  // Esc
constexpr int BarcodeSlot = 0;
constexpr int RfidSlot = 1;

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
        return KeypadInputWindow::onKeyDown(key);
    show("trigger pulled");
    ScannerInput* const scanner = ScannerInput::getScannerInput();
    return scanner && scanner->initScan(BarcodeSlot) && scanner->initScan(RfidSlot);
}

bool DemoWindow::onKeyUp(int key) {
    switch (key) {
    case TriggerKey: {
        show("trigger let go, scanning");
        ScannerInput* const scanner = ScannerInput::getScannerInput();
        return scanner && scanner->startScan();
    }
    case EnterKey:
        if (!text.empty())
            note("text entered: %s", text.c_str());
        text.clear();
        break;
    case EndKey:
        note("good bye");
        GuiLibrary::quit();
        return true;
    default: break;
    }
    return KeypadInputWindow::onKeyUp(key);
}

bool DemoWindow::putCharacter(unsigned char character, int how, int flag) {
    if (how == PutInsert) {
        if (hasPending)
            text.pop_back();
        text += static_cast<char>(character);
        hasPending = flag == 0;
        showText();
    } else if (how == PutCaseChange && character != 0 && hasPending) {
        text.back() = static_cast<char>(character);
        showText();
    } else {
        static constexpr const char* Modes[] = {"123", "ABC", "abc"};
        show("keypad: %s", Modes[getInputMode()]);
    }
    return true;
}

bool DemoWindow::backspace(bool held) {
    if (held)
        text.clear();
    else if (!text.empty())
        text.pop_back();
    hasPending = false;
    showText();
    return !text.empty();
}

void DemoWindow::showText() const { show("text: %s", text.c_str()); }

void DemoWindow::onSystemEvent(int code, void* data) {
    switch (code) {
    case events::StatusText: show("event %d: %s", code, static_cast<const char*>(data)); break;
    case events::ErrorText:
        show("event %d: error: %s", code, static_cast<const char*>(data));
        break;
    case events::SignalQuality:
        show("event %d: signal at %d %%", code, events::numberIn(data));
        break;
    case events::NetworkStateChange:
        show("event %d: %s", code, nameOf(static_cast<NetworkEvent>(events::numberIn(data))));
        break;
    case events::BatteryCapacity:
        show("event %d: battery at %d %%", code, events::numberIn(data));
        break;
    case events::BatteryEmpty: show("event %d: battery empty", code); break;
    case events::Temperature:
        if (events::numberIn(data) == INT_MIN)
            show("event %d: no temperature", code);
        else
            show("event %d: %d degrees", code, events::numberIn(data));
        break;
    case events::ScannedCode: {
        const auto* const record = static_cast<const ScanRecord*>(data);
        if (record->id)
            note("event %d: source %d, tag %s, data %s", code, record->source, record->id,
                 record->data);
        else
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
