#include "sim/devices/PowerControl.h"

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>

#include "power/BoardProtocol.h"

namespace sim {

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
    supplyReactions.emplace(number, std::move(react));
}

void PowerControl::onLine(unsigned number, std::function<void(bool)> react) {
    lineReactions.emplace(number, std::move(react));
}

void PowerControl::onReading(unsigned number, std::function<int()> read) {
    readings[number] = std::move(read);
}

void PowerControl::tell(const Reactions& reactions, unsigned number, bool state) {
    const auto [first, last] = reactions.equal_range(number);
    for (auto reaction = first; reaction != last; ++reaction)
        reaction->second(state);
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
    {
        const std::lock_guard<std::mutex> held(mutex);
        lines[number] = level;
    }
    journal.note("pwrctrl", "line " + std::to_string(number) + (level ? " high" : " low"));
    tell(lineReactions, number, level != 0);
    return 0;
}

int PowerControl::readLine(unsigned number) {
    if (number >= LineCount)
        return failWith(EINVAL);
    journal.note("pwrctrl", "read line " + std::to_string(number));
    const auto reading = readings.find(number);
    return reading == readings.end() ? line(number) : reading->second();
}

int PowerControl::setSupply(unsigned number, bool on) {
    if (number >= SupplyCount)
        return failWith(EINVAL);
    {
        const std::lock_guard<std::mutex> held(mutex);
        supplies[number] = on;
    }
    journal.note("pwrctrl", "supply " + std::to_string(number) + (on ? " on" : " off"));
    tell(supplyReactions, number, on);
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
