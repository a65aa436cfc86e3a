// The power state: idle tracking, the change from one state to another, suspend and shutdown.

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "gui/GuiLibrary.h"
#include "io/FileStream.h"
#include "io/Media.h"
#include "power/BoardProtocol.h"
#include "power/PowerManager.h"
#include "power/SystemEvents.h"

uint32_t PowerManager::nowSeconds() { return static_cast<uint32_t>(s_gettimeofday() / 1000); }

PowerState PowerManager::getCurrentState() {
    MutexGuard held(idleLock);
    return currentState;
}

void PowerManager::enableTransitions(bool on) {
    MutexGuard held(idleLock);
    transitionsEnabled = on;
}

bool PowerManager::kickIdle() {
    MutexGuard held(idleLock);
    if (!transitionsEnabled)
        return false;
    lastActivity = nowSeconds();
    const PowerState before = currentState;
    setPowerMode(POWER_ON);
    return before != POWER_ON;
}

bool PowerManager::kickIdleProc() {
    PowerManager* const manager = getPowerManager();
    return manager && manager->kickIdle();
}

int PowerManager::getIdleDuration() {
    MutexGuard held(idleLock);
    // Both wrap together; a stamp ahead of the present is a negative difference.
    return std::max(static_cast<int>(nowSeconds() - lastActivity), 0);
}

void PowerManager::setPowerSaveSleep(int seconds) { powerSaveSleep = seconds; }

bool PowerManager::setPowerMode(PowerState to) {
    const PowerState from = currentState;
    if (!transitionsEnabled || to == from || !listenersAgree(from, to))
        return false;
    currentState = to;
    enter(to);
    return true;
}

/// What was set up last is taken down first on the way to a deeper state, and comes up last.
bool PowerManager::listenersAgree(PowerState from, PowerState to) {
    const auto tell = [&](PowerEventListener& listener) {
        return listener.powerStateChange(from, to);
    };
    return to < from ? notifyOldestFirst(tell) : notifyNewestFirst(tell);
}

void PowerManager::enter(PowerState state) {
    switch (state) {
    case POWER_ON:
        oledEnable(true);
        oledFadeBrightness(static_cast<unsigned char>(maxBrightness));
        break;
    case POWER_DIMMED: oledFadeBrightness(static_cast<unsigned char>(maxBrightness / 2)); break;
    case POWER_DARK: oledFadeBrightness(0); break;
    case POWER_DISPLAY_OFF:
        ledEnable(false, false);
        keybFadeBackLight(0);
        oledFadeBrightness(0);
        oledEnable(false);
        break;
    case POWER_ALARM_WAKE: break;
    case POWER_SUSPEND: suspend(); break;
    case POWER_SHUTDOWN: shutDown(); break;
    }
}

/// Unmounts the card for good; when it is in use, falls back to the state that only darkens.
bool PowerManager::releaseMedia() {
    Media::mountDisable();
    if (Media::unmountAll())
        return true;
    Media::mountEnable();
    setPowerMode(POWER_DISPLAY_OFF);
    return false;
}

void PowerManager::suspend() {
    keybSetBackLight(0);
    oledEnable(false);
    if (!releaseMedia())
        return;
    io::FileStream state = io::openStream(board::SuspendPath, "w");
    if (!state) {
        Media::mountEnable();
        setPowerMode(POWER_DISPLAY_OFF);
        return;
    }
    const time_t asleepSince = std::time(nullptr);
    if (const int sleepSeconds = powerSaveSleep; sleepSeconds > 0)
        rtcSetAlarm(sleepSeconds);
    std::fputs(board::SuspendToRam, state.get());
    state.reset();  // the write happens here: the terminal sleeps, and goes on from here

    Media::mountEnable();
    const bool wokenByAlarm = rtcGetAlarmState();
    {
        MutexGuard held(idleLock);
        // The windowing library's clock stood still: move the stamp back, so that a sleep ended by
        // the alarm counts as idle time.
        if (wokenByAlarm)
            lastActivity += static_cast<uint32_t>(asleepSince - std::time(nullptr));
        else
            lastActivity = nowSeconds();
    }
    setPowerMode(wokenByAlarm ? POWER_ALARM_WAKE : POWER_ON);
}

void PowerManager::shutDown() {
    ledEnable(false, false);
    keybSetBackLight(0);
    gprsPowerOff();
    if (!releaseMedia())
        return;
    oledSetBrightness(0);
    oledEnable(false);
    events::WindowingGuard windowing;
    GuiLibrary::broadcastSystemEvent(events::ShutdownRequest, nullptr);
}
