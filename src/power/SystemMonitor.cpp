#include "power/SystemMonitor.h"

#include <algorithm>

#include "gui/GuiLibrary.h"
#include "power/PowerManager.h"
#include "power/SystemEvents.h"

namespace {

constexpr int TickMs = 1000;

constexpr int FullKeyboardLight = 255;
constexpr int BrightLight = 30;  // above: no keyboard light
constexpr int DimLight = 10;     // above: half of it

constexpr int MinSleepSeconds = 30;
constexpr int MaxSleepSeconds = 900;

/// A delay or interval of 0 or less switches its step off.
bool isReached(int delay, int idle) { return delay > 0 && idle >= delay; }

uint32_t nowMs() { return static_cast<uint32_t>(s_gettimeofday()); }

/// Whether a report is due, and notes it as made. By difference, so that it survives the wrap of
/// the milliseconds every 50 days.
bool takeTurn(uint32_t& lastReport, int interval) {
    const uint32_t now = nowMs();
    if (interval <= 0 || now - lastReport < static_cast<uint32_t>(interval))
        return false;
    lastReport = now;
    return true;
}

}  // namespace

std::atomic<SystemMonitor*> SystemMonitor::monitor{nullptr};

SystemMonitor::SystemMonitor() : lastBatteryReport(nowMs()), lastTemperatureReport(nowMs()) {
    period = TickMs;
}

bool SystemMonitor::initialize() {
    if (monitor)
        return true;
    auto* const created = new SystemMonitor;
    if (!created->init()) {
        delete created;
        return false;
    }
    monitor = created;
    return true;
}

void SystemMonitor::shutdown() {
    SystemMonitor* const current = monitor.exchange(nullptr);
    if (!current)
        return;
    current->close();
    delete current;
}

SystemMonitor* SystemMonitor::getMonitor() { return monitor; }

bool SystemMonitor::init() { return startTimer(); }

bool SystemMonitor::close() { return stopTimer(); }

void SystemMonitor::setPowerDelays(int dim, int dark, int displayOff, int suspend, int powerOff) {
    dimDelay = dim;
    darkDelay = dark;
    displayOffDelay = displayOff;
    suspendDelay = suspend;
    powerOffDelay = powerOff;
}

void SystemMonitor::getPowerCounters(int* out) {
    std::copy(std::begin(counters), std::end(counters), out);
}

void SystemMonitor::setKeyboardBrightness(int level) {
    keyboardBrightness = std::clamp(level, 0, FullKeyboardLight);
}

void SystemMonitor::onTimer() {
    PowerManager* const power = PowerManager::getPowerManager();
    if (!power)
        return;
    const bool wasConnected = usbConnected;
    usbConnected = power->isUsbConnected();
    if (usbConnected != wasConnected)
        power->kickIdle();
    handleBattery();
    handleTemperature();
    handleLighting();
    handlePower();
}

void SystemMonitor::handleBattery() {
    if (!takeTurn(lastBatteryReport, batteryInterval))
        return;
    const int capacity = PowerManager::getPowerManager()->getBatteryCapacity(nullptr);
    if (capacity < 0)
        return;
    GuiLibrary::broadcastSystemEvent(events::BatteryCapacity, events::number(capacity));
    if (capacity == 0)
        GuiLibrary::broadcastSystemEvent(events::BatteryEmpty, events::number(0));
}

void SystemMonitor::handleTemperature() {
    if (!takeTurn(lastTemperatureReport, temperatureInterval))
        return;
    const int reading = PowerManager::getPowerManager()->getTempReading();
    GuiLibrary::broadcastSystemEvent(events::Temperature, events::number(reading));
}

void SystemMonitor::handleLighting() {
    // The stamp stays at 0, so the light is adjusted on every tick: only a clock that was repaired,
    // and starts with 1970 again, may have to get past those 3000 seconds first.
    if (lightingInterval <= 0 ||
        std::time(nullptr) < static_cast<time_t>(lightingInterval) + lastLightingAdjustment)
        return;
    PowerManager* const power = PowerManager::getPowerManager();
    if (power->getCurrentState() > POWER_DIMMED)
        return;
    const int light = power->getAmbientLight();
    int level = keyboardBrightness;  // in the dark, and when the sensor cannot be read
    if (light > BrightLight)
        level = 0;
    else if (light > DimLight)
        level /= 2;
    power->keybFadeBackLight(static_cast<unsigned char>(level));
}

void SystemMonitor::handlePower() {
    PowerManager* const power = PowerManager::getPowerManager();
    const PowerState state = power->getCurrentState();
    int idle = power->getIdleDuration();
    if (suspendStart != 0) {
        counters[SecondsSuspended] += static_cast<int>(std::time(nullptr) - suspendStart);
        suspendStart = 0;
    }
    switch (state) {
    case POWER_ON:
        ++counters[TicksOn];
        step(POWER_DIMMED, dimDelay, idle);
        break;
    case POWER_DIMMED:
        ++counters[TicksDimmed];
        step(POWER_DARK, darkDelay, idle);
        break;
    case POWER_DARK:
        ++counters[TicksDark];
        step(POWER_DISPLAY_OFF, displayOffDelay, idle);
        break;
    case POWER_DISPLAY_OFF:
        ++counters[TicksDisplayOff];
        if (isReached(suspendDelay, idle) && !usbConnected)
            idle = suspend(idle);
        break;
    case POWER_ALARM_WAKE: idle = suspend(idle); break;
    case POWER_SUSPEND:
    case POWER_SHUTDOWN: break;
    }
    if (isReached(powerOffDelay, idle) && !usbConnected)
        power->setPowerMode(POWER_SHUTDOWN);
}

void SystemMonitor::step(PowerState next, int delay, int idle) {
    if (isReached(delay, idle))
        PowerManager::getPowerManager()->setPowerMode(next);
}

/// Suspends until the next look at the power-off delay, and gives the idle time after the wake-up.
int SystemMonitor::suspend(int idle) {
    const int untilOff = powerOffDelay;
    if (isReached(untilOff, idle))
        return idle;
    PowerManager* const power = PowerManager::getPowerManager();
    power->setPowerSaveSleep(untilOff > 0
                                 ? std::clamp(untilOff - idle, MinSleepSeconds, MaxSleepSeconds)
                                 : MaxSleepSeconds);
    suspendStart = std::time(nullptr);
    power->setPowerMode(POWER_SUSPEND);
    return power->getIdleDuration();
}
