#include "sim/devices/Display.h"

#include <cerrno>
#include <cstdint>
#include <string>

#include "power/BoardProtocol.h"

namespace sim {

Display::Display(Journal& eventJournal) : journal(eventJournal) {}

bool Display::isOn() const {
    const std::lock_guard<std::mutex> held(mutex);
    return on;
}

bool Display::isFrozen() const {
    const std::lock_guard<std::mutex> held(mutex);
    return frozen;
}

int Display::brightness() const {
    const std::lock_guard<std::mutex> held(mutex);
    return level;
}

int Display::ioctl(unsigned long request, void* argument) {
    const auto value = static_cast<unsigned>(reinterpret_cast<uintptr_t>(argument));
    const std::lock_guard<std::mutex> held(mutex);
    std::string text;
    switch (request) {
    case board::DisplayOff:
    case board::DisplayOn:
        on = request == board::DisplayOn;
        text = on ? "on" : "off";
        break;
    case board::FreezePicture:
    case board::UnfreezePicture:
        frozen = request == board::FreezePicture;
        text = frozen ? "freeze" : "unfreeze";
        break;
    case board::SetBrightness:
    case board::FadeBrightness:
        if (value > 255)
            return failWith(EINVAL);
        level = static_cast<int>(value);
        text = (request == board::SetBrightness ? "brightness " : "fade ") + std::to_string(value);
        break;
    default: return failWith(ENOTTY);
    }
    journal.note("oled", text);
    return 0;
}

}  // namespace sim
