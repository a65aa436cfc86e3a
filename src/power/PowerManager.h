#pragma once

#include <atomic>
#include <cstdint>

#include "foundation/EventBroadcaster.h"
#include "foundation/Mutex.h"
#include "foundation/PowerEventListener.h"
#include "foundation/PowerState.h"

/// The terminal's supplies, control lines, display, buzzer, clock and sensors, and the power state.
///
/// One instance per process, made by the application before anything else of the library and
/// destroyed after everything else: all other classes reach it through getPowerManager() without a
/// null test. Objects that act around sleep add themselves as listeners.
///
/// Any thread may call any operation, with one rule: sequences on one module (gprsPowerOn() and the
/// like, which sleep) belong to the driver that owns the module. Each other device operation is one
/// request to a driver. Operations that give a raw result give the system call's: 0 on success.
class PowerManager : public EventBroadcaster<PowerEventListener> {
public:
    /// Creates and initializes the instance. False when there is one already or it cannot
    /// initialize; the devices that it has opened by then stay open.
    static bool initPowerManager();

    /// Deinitializes and destroys the instance. False when there is none.
    static bool deinitPowerManager();

    /// Null when there is none.
    static PowerManager* getPowerManager();

    /// Opens the devices, repairs a clock that has lost its time (to 1 January 1970, local time),
    /// switches the display on and starts listening to user input. False when the control device,
    /// the speaker or the clock cannot be opened; what is open then stays open until deinitialize()
    /// or another initialize(). What else fails is passed over.
    bool initialize();

    /// Stops listening, asks for the picture to be frozen, as oledFreeze() does, and closes the
    /// devices. True.
    bool deinitialize();

    /// Opens the first input device that can sound; -1 when there is none. The caller closes it.
    /// The silent devices found on the way stay open.
    int findSpeakerDevice();

    /// Barcode scanner. True when the driver has accepted every step.
    /// @{
    bool scannerSetAim(bool on);
    bool scannerPowerUp();
    bool scannerPowerDown();
    /// @}

    /// GPRS modem.
    /// @{
    bool gprsGetPower();      ///< whether the modem runs
    int gprsSetDTR(bool on);  ///< the raw result
    int gprsReset();          ///< takes 100 ms; the raw result of the last step
    bool gprsPowerOn();       ///< true when the modem runs; takes up to 3 seconds
    bool gprsPowerOff();      ///< false when the supply cannot be switched; takes up to 12 seconds
    /// @}

    /// Bluetooth module. False when the supply cannot be switched; takes about 100 ms.
    /// @{
    bool btPowerOn();
    bool btPowerOff();
    /// @}

    /// Mini-PCI card: its supply, its radio. The raw result.
    /// @{
    int mpciEnable3V3(bool on);
    int mpciEnableRadio(bool on);
    /// @}

    /// LEDs and keyboard light. The raw result, of the second LED.
    /// @{
    int ledEnable(bool a, bool b);
    int keybSetBackLight(unsigned char level);
    int keybFadeBackLight(unsigned char level);
    /// @}

    /// Display. True when the driver has accepted the request.
    ///
    /// Enable and freeze share one memory of what was last asked: a request equal to it is not
    /// passed on, whichever of the two it comes from. oledFreeze(true) right after oledEnable(true)
    /// does nothing, and applications have come to rely on it.
    /// @{
    bool oledEnable(bool on);
    bool oledFreeze(bool freeze);
    /// @}

    /// True when the driver has accepted the level, 0 to 255: at once, or by fading.
    /// @{
    bool oledSetBrightness(unsigned char level);
    bool oledFadeBrightness(unsigned char level);
    /// @}

    /// The brightness of POWER_ON; POWER_DIMMED has half of it. Its low 8 bits reach the display.
    void oledSetMaxBrightness(int level);

    /// Sounds a tone of `frequency` hertz for `durationMs`, and returns after it.
    /// The number of bytes written to silence it, or -1.
    int buzzerPlay(int frequency, int durationMs);

    /// Clock, which keeps local time. `t` is seconds since the epoch. False when the driver
    /// refuses, or the time has no local form; `t` is left alone then. The clock does not know of
    /// daylight saving: while it is in force, what is read, and with it an alarm, is an hour ahead.
    /// @{
    bool rtcGetTime(long* t);       ///< with null: only whether the clock can be read
    bool rtcSetTime(long t);        ///< the system's time stays
    bool rtcSetAlarm(int seconds);  ///< from the clock's present time, not the system's
    bool rtcEnableAlarm(bool on);   ///< the alarm's interrupt
    bool rtcGetAlarmState();        ///< true once after the alarm has gone off
    /// @}

    /// Sensors.
    /// @{
    bool isUsbConnected();  ///< whether a cable supplies power; false when that cannot be read
    int getAmbientLight();  ///< -1 on failure
    int getTempReading();   ///< the sensor's value divided by 100; INT_MIN on failure

    /// Millivolts, not smoothed; getBatteryCapacity() smooths on from them. -1 on failure.
    int getBatteryVoltage();

    /// The battery's charge in percent, 0 to 100, out of a voltage smoothed over the readings. The
    /// voltage in millivolts goes to `voltage` unless that is null. -1 on failure, with `voltage`
    /// left alone.
    int getBatteryCapacity(int* voltage);
    /// @}

    /// Changes the power state: asks the listeners, then drives the devices. False when nothing was
    /// done: transitions are disabled, the state is the present one, or a listener has refused. Not
    /// from a listener.
    ///
    /// POWER_SUSPEND returns after the wake-up, in another state unless that change was refused.
    /// POWER_SHUTDOWN takes the time of gprsPowerOff() and then sends events::ShutdownRequest on
    /// this thread, waiting for the windowing library's lock as long as it takes. Both are true,
    /// too, when they have ended in POWER_DISPLAY_OFF because the memory card is in use or the
    /// kernel offers no suspend.
    bool setPowerMode(PowerState to);

    /// Waits for a kickIdle() in progress.
    PowerState getCurrentState();

    /// While off, setPowerMode() and kickIdle() do nothing.
    void enableTransitions(bool on);

    /// Notes user activity and switches the display on. True when the state was not POWER_ON, also
    /// if a listener has kept it so.
    bool kickIdle();

    /// kickIdle() of the instance, if there is one: the windowing library's idle hook.
    static bool kickIdleProc();

    /// Seconds since the last activity.
    int getIdleDuration();

    /// How long the next suspend may last before the clock wakes the terminal, in seconds; 0 or
    /// less: it sets no alarm, and one that was set before still wakes the terminal.
    void setPowerSaveSleep(int seconds);

private:
    PowerManager() = default;
    ~PowerManager() override = default;

    void closeDevices();
    int powerControl(unsigned request, unsigned argument);
    int setLine(unsigned line, bool high);
    bool displaySwitch(bool on, unsigned request);
    bool displayLevel(unsigned request, unsigned char level);
    void repairClock();

    static uint32_t nowSeconds();
    bool listenersAgree(PowerState from, PowerState to);
    void enter(PowerState state);
    void suspend();
    void shutDown();
    bool releaseMedia();

    static std::atomic<PowerManager*> powerManager;

    // The idle lock guards the stamp, changes of the flag and the readers of the state. kickIdle()
    // holds it across setPowerMode(POWER_ON), so nothing on that way may take it. A suspend does
    // take it, for the stamp: it is never entered from kickIdle().
    Mutex idleLock;
    uint32_t lastActivity = 0;  // whole seconds of the windowing library's clock
    std::atomic<PowerState> currentState{POWER_SHUTDOWN};

    // Set by initialize(), before other threads come.
    int speaker = -1;
    int powerControlDevice = -1;
    int clockDevice = -1;

    std::atomic<bool> transitionsEnabled{true};
    std::atomic<int> powerSaveSleep{60};

    Mutex displayLock;         // one display request at a time
    bool displayFlag = false;  // what oledEnable() or oledFreeze() was last given

    std::atomic<int> maxBrightness{255};
    std::atomic<int> batteryVoltage{-1};  // millivolts; -1: none yet
};
