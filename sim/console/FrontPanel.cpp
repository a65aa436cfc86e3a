#include "sim/console/FrontPanel.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "power/BoardProtocol.h"
#include "sim/Text.h"

namespace sim {
namespace {

using launcher::PanelItem;

constexpr int BrightnessSteps = 255;
constexpr int EmptyMillivolts = 3300, FullMillivolts = 4200;
constexpr int WeakestDbm = -110, StrongestDbm = -50;

int percent(long value, long least, long most) {
    return static_cast<int>(std::clamp((value - least) * 100 / (most - least), 0L, 100L));
}

PanelItem lamp(const char* name, bool isLit) { return {PanelItem::Lamp, name, isLit ? 1 : 0, ""}; }

PanelItem title(bool isAsleep) {
    const timespec time = toTimespec(Clock::get().wall());
    tm local{};
    localtime_r(&time.tv_sec, &local);
    return {PanelItem::Title, isAsleep ? "asleep" : "awake", 0, dateText(local)};
}

PanelItem display(const Display& display) {
    std::string text = display.isOn() ? std::to_string(display.brightness()) : "off";
    if (display.isFrozen())
        text += ", frozen";
    return {PanelItem::Bar, "display",
            display.isOn() ? percent(display.brightness(), 0, BrightnessSteps) : 0, text};
}

PanelItem radio(const RadioModule& radio) {
    // The states of registration of 3GPP TS 27.007.
    static constexpr const char* Registrations[] = {"not registered", "home", "searching",
                                                    "denied",         "?",    "roaming"};
    if (!radio.isOn())
        return {PanelItem::Bar, "radio", 0, "off"};
    std::string text = Registrations[radio.registration()];
    if (radio.isAttached())
        text += ", attached";
    if (radio.isMultiplexing())
        text += ", multiplexing";
    return {PanelItem::Bar, "radio", percent(radio.signal(), WeakestDbm, StrongestDbm), text};
}

PanelItem wlan(const WlanAdapter& adapter) {
    const std::string essid = adapter.essid();
    if (essid.empty())
        return {PanelItem::Bar, "WLAN", 0, !adapter.isPresent() ? "off" : "not associated"};
    return {PanelItem::Bar, "WLAN", percent(adapter.signal(), WeakestDbm, StrongestDbm),
            essid + " " + adapter.address()};
}

PanelItem bluetooth(const BluetoothAir& air) {
    for (const BluetoothAir::Remote& remote : air.remotes()) {
        if (remote.link != 0)
            return {PanelItem::Bar, "Bluetooth", percent(remote.dBm, WeakestDbm, StrongestDbm),
                    remote.name};
    }
    return {PanelItem::Bar, "Bluetooth", 0, "no link"};
}

std::string cardText(const MemoryCard& card) {
    if (!card.isInserted())
        return "none";
    switch (card.state()) {
    case MemoryCard::State::NotMounted: return "not mounted";
    case MemoryCard::State::ReadOnly: return "read-only";
    case MemoryCard::State::ReadWrite: return "written";
    }
    return "";
}

/// What a reader's note of a read code begins with.
constexpr char ReadNote[] = "read ";

}  // namespace

void FrontPanel::see(const Journal::Entry& entry) {
    const size_t length = sizeof ReadNote - 1;
    if (entry.text.compare(0, length, ReadNote) != 0)
        return;
    const std::lock_guard<std::mutex> held(mutex);
    if (entry.device == "barcode")
        lastCode = entry.text.substr(length);
    else if (entry.device == "rfid")
        lastTag = entry.text.substr(length);
}

std::vector<PanelItem> FrontPanel::items() const {
    const PowerControl& control = terminal.powerControl();
    const long millivolts = terminal.battery().value();
    char degrees[16];
    snprintf(degrees, sizeof degrees, "%.1f",
             static_cast<double>(terminal.temperature().value()) / 100);
    const bool hasPpp = terminal.ppp().isPresent();

    std::vector<PanelItem> items = {
        title(terminal.power().isSuspended()),
        lamp("LED 1", control.line(board::LineFirstLed) == 0),
        lamp("LED 2", control.line(board::LineSecondLed) == 0),
        lamp("aim", control.line(board::LineScannerAim) == 0),
        lamp("scanner supply", control.supply(board::SupplyScanner)),
        lamp("radio supply", control.supply(board::SupplyGprs)),
        lamp("USB", terminal.usbSupply().value() == 1),
        display(terminal.display()),
        {PanelItem::Bar, "battery", percent(millivolts, EmptyMillivolts, FullMillivolts),
         std::to_string(millivolts) + " mV"},
        {PanelItem::Bar, "key light", percent(control.keyboardLight(), 0, BrightnessSteps),
         std::to_string(control.keyboardLight())},
        {PanelItem::Text, "degrees", 0, degrees},
        radio(terminal.radio()),
        {PanelItem::Text, "ppp0", 0, hasPpp ? terminal.ppp().address() + " up" : "down"},
        wlan(terminal.wlan()),
        bluetooth(terminal.air()),
        {PanelItem::Text, "card", 0, cardText(terminal.card())},
    };
    const std::lock_guard<std::mutex> held(mutex);
    items.push_back({PanelItem::Text, "last code", 0, lastCode});
    items.push_back({PanelItem::Text, "last tag", 0, lastTag});
    return items;
}

}  // namespace sim
