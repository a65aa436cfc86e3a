#include "sim/devices/PowerControl.h"

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>

#include "power/BoardProtocol.h"
#include "sim/devices/ModemPower.h"

namespace sim {

PowerControl::PowerControl(Journal& eventJournal, ModemPower& modemPower)
    : journal(eventJournal), modem(modemPower) {}

int PowerControl::line(unsigned number) const {
    const std::lock_guard<std::mutex> held(mutex);
    return lines.at(number);
}

bool PowerControl::supply(unsigned number) const {
    const std::lock_guard<std::mutex> held(mutex);
    return supplies.at(number);
}

int PowerControl::keyboardLight() const {
    const std::lock_guard<std::mutex> held(mutex);
    return light;
}

void PowerControl::onSupply(unsigned number, std::function<void(bool)> react) {
    reactions.push_back({number, std::move(react)});
}

int PowerControl::ioctl(unsigned long request, void* argument) {
    const auto value = static_cast<unsigned>(reinterpret_cast<uintptr_t>(argument));
    switch (request) {
    case board::LineLow: return setLine(value, 0);
    case board::LineHigh: return setLine(value, 1);
    case board::ReadLine: return readLine(value);
    case board::SetKeyboardLight: return setKeyboardLight("keyboard light ", value);
    case board::FadeKeyboardLight: return setKeyboardLight("keyboard fade ", value);
    case board::SupplyOn: return setSupply(value, true);
    case board::SupplyOff: return setSupply(value, false);
    default: return failWith(ENOTTY);
    }
}

int PowerControl::setLine(unsigned number, int level) {
    if (number >= LineCount)
        return failWith(EINVAL);
    int before = 0;
    {
        const std::lock_guard<std::mutex> held(mutex);
        before = std::exchange(lines[number], level);
    }
    journal.note("pwrctrl", "line " + std::to_string(number) + (level ? " high" : " low"));
    if (number == board::LineGprsPowerKey && before == 1 && level == 0)
        modem.keyReleased();
    return 0;
}

int PowerControl::readLine(unsigned number) {
    if (number >= LineCount)
        return failWith(EINVAL);
    journal.note("pwrctrl", "read line " + std::to_string(number));
    return number == board::LineGprsPowerStatus ? modem.readStatus() : line(number);
}

int PowerControl::setSupply(unsigned number, bool on) {
    if (number >= SupplyCount)
        return failWith(EINVAL);
    {
        const std::lock_guard<std::mutex> held(mutex);
        supplies[number] = on;
    }
    journal.note("pwrctrl", "supply " + std::to_string(number) + (on ? " on" : " off"));
    for (const Reaction& reaction : reactions) {
        if (reaction.supply == number)
            reaction.react(on);
    }
    return 0;
}

int PowerControl::setKeyboardLight(const char* how, unsigned level) {
    if (level > 255)
        return failWith(EINVAL);
    {
        const std::lock_guard<std::mutex> held(mutex);
        light = static_cast<int>(level);
    }
    journal.note("pwrctrl", how + std::to_string(level));
    return 0;
}

}  // namespace sim
