#pragma once

/// The power states of the terminal, from most awake to least. The order is part of the contract:
/// the direction of a change decides the order in which listeners are told.
enum PowerState : int {
    POWER_ON = 0,           ///< display on, at the maximum brightness
    POWER_DIMMED = 1,       ///< display at half the maximum brightness
    POWER_DARK = 2,         ///< display on, brightness 0
    POWER_DISPLAY_OFF = 3,  ///< display, LEDs and keyboard light off
    POWER_ALARM_WAKE = 4,   ///< woken from suspend by the clock's alarm; the display stays off
    POWER_SUSPEND = 5,      ///< suspended to RAM
    POWER_SHUTDOWN = 6      ///< everything off; also the state before PowerManager::initialize()
};
