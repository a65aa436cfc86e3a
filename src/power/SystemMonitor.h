#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>

#include "foundation/PowerState.h"
#include "gui/GuiTimer.h"

/// The once-a-second heartbeat of the power policy: reports battery and temperature to the
/// application, adapts the keyboard light, and steps the terminal down through the power states
/// while nobody uses it. Plugging or unplugging USB counts as use.
///
/// One instance, made by the application after the power manager and destroyed before it. Ticks
/// come on the windowing library's event thread; a suspend blocks that thread for the whole sleep.
/// Settings and counters may be used from any thread.
class SystemMonitor : public GuiTimer {
public:
    /// Creates the instance and starts its timer. True also when there is one already.
    static bool initialize();

    /// Stops and destroys the instance. Not from a system event that a tick has sent.
    static void shutdown();

    /// Null when there is none.
    static SystemMonitor* getMonitor();

    /// One tick: USB, then the parts below.
    void onTimer() override;

    /// The idle times, in seconds, after which the terminal goes a step down; each 0 or less for
    /// never. At first 5, 20, 30, 60 and 3600.
    virtual void setPowerDelays(int dim, int dark, int displayOff, int suspend, int powerOff);

    /// Fills `out` with CounterCount numbers: ticks spent in POWER_ON, POWER_DIMMED, POWER_DARK and
    /// POWER_DISPLAY_OFF, a number that is always 0, seconds spent suspended, and another 0.
    virtual void getPowerCounters(int* out);

    /// The full level of the keyboard light; limited to 0 to 255.
    virtual void setKeyboardBrightness(int level);

    /// Starts the timer.
    virtual bool init();

    /// Stops the timer.
    virtual bool close();

    /// The parts of a tick, in the order battery, temperature, lighting, power.
    /// @{

    /// A step down, when it is time for one.
    virtual void handlePower();

    /// Every 4 seconds: events::BatteryCapacity, and events::BatteryEmpty at 0.
    virtual void handleBattery();

    /// Every 10 seconds: events::Temperature.
    virtual void handleTemperature();

    /// Every tick while the display is lit, once the system's time is past the first 3000 seconds
    /// of 1970, UTC. A clock that was repaired may have to get there first.
    virtual void handleLighting();
    /// @}

    static constexpr int CounterCount = 7;  ///< of getPowerCounters()

protected:
    SystemMonitor();

private:
    enum Counter { TicksOn, TicksDimmed, TicksDark, TicksDisplayOff, Unused, SecondsSuspended };

    static void step(PowerState next, int delay, int idle);
    int suspend(int idle);

    std::atomic<int> dimDelay{5};
    std::atomic<int> darkDelay{20};
    std::atomic<int> displayOffDelay{30};
    std::atomic<int> suspendDelay{60};
    std::atomic<int> powerOffDelay{3600};

    int batteryInterval = 4000;       // milliseconds
    int temperatureInterval = 10000;  // milliseconds
    int lightingInterval = 3000;      // seconds since a stamp that is never advanced
    std::atomic<int> keyboardBrightness{255};
    std::atomic<int> counters[CounterCount]{};

    // Event thread only.
    uint32_t lastBatteryReport;  // low 32 bits of the windowing library's milliseconds
    uint32_t lastTemperatureReport;
    int lastLightingAdjustment = 0;
    time_t suspendStart = 0;  // 0: no suspend to account for
    bool usbConnected = false;

    static std::atomic<SystemMonitor*> monitor;
};
