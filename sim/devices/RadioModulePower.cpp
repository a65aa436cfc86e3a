// The module's power: its lines and what they do to it.

#include "sim/devices/RadioModule.h"

namespace sim {
namespace {

// The shortest pulses of the power key that count.
constexpr Nanoseconds PowerOnPulse = std::chrono::milliseconds(900);
constexpr Nanoseconds PowerOffPulse = std::chrono::milliseconds(1500);

}  // namespace

void RadioModule::setSupply(bool nowOn) {
    const Lock held(mutex);
    isSupplied = nowOn;
}

void RadioModule::setControl(bool level) {
    const Lock held(mutex);
    isEnabled = level;
    if (!level && on)
        powerDown("forced off");
}

void RadioModule::setReset(bool level) {
    const Lock held(mutex);
    if (resetLevel && !level && on)
        restart();
    resetLevel = level;
}

void RadioModule::setDtr(bool level) {
    const Lock held(mutex);
    dtrLevel = level;
}

void RadioModule::setPowerKey(bool level) {
    const Lock held(mutex);
    const bool isReleased = keyLevel && !level;
    if (!keyLevel && level)
        keyDownSince = Clock::get().monotonic();
    keyLevel = level;
    const Nanoseconds pulse = Clock::get().monotonic() - keyDownSince;
    if (!isReleased || !isEnabled || pulse < (on ? PowerOffPulse : PowerOnPulse))
        return;
    if ((!on && !isSupplied) || pulsesLeft == 0 || --pulsesLeft > 0)
        return;
    pulsesLeft = 1;
    if (!on) {
        powerUp();
    } else if (!goingOff) {
        journal.note("radio", "power off");
        goingOff = true;
        ++session;
    }
}

int RadioModule::readStatus() {
    const Lock held(mutex);
    if (goingOff && readingsLeft >= 0 && readingsLeft-- == 0) {
        readingsLeft = 0;
        powerDown(nullptr);
    }
    return on ? 1 : 0;
}

void RadioModule::answerPulse(int count) {
    const Lock held(mutex);
    pulsesLeft = count;
}

void RadioModule::lingerFor(int count) {
    const Lock held(mutex);
    readingsLeft = count;
}

void RadioModule::setBootTime(Nanoseconds time) {
    const Lock held(mutex);
    bootTime = time;
}

void RadioModule::setOn(bool nowOn) {
    const Lock held(mutex);
    if (nowOn) {
        isSupplied = true;
        powerUp();
        readyAt = Nanoseconds(0);
    } else {
        powerDown("power off");
    }
}

bool RadioModule::isOn() const {
    const Lock held(mutex);
    return on;
}

void RadioModule::powerUp() {
    journal.note("radio", "power on");
    on = true;
    goingOff = false;
    restart();
}

void RadioModule::powerDown(const char* how) {
    if (how)
        journal.note("radio", how);
    on = goingOff = false;
    multiplexing = false;
    ++session;
}

/// From the beginning: whatever it was doing is forgotten.
void RadioModule::restart() {
    ++session;
    multiplexing = false;
    channels = {};
    commands.powerUp();
    readyAt = Clock::get().monotonic() + bootTime;
    announce();
}

}  // namespace sim
