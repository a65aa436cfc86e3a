#include "sim/devices/ModemPower.h"

namespace sim {

void ModemPower::keyReleased() {
    if (pulsesLeft == 0 || --pulsesLeft > 0)
        return;
    pulsesLeft = 1;
    if (on)
        goingOff = true;
    else
        on = true;
}

int ModemPower::readStatus() {
    if (goingOff && readingsLeft >= 0 && readingsLeft-- == 0) {
        readingsLeft = 0;
        goingOff = false;
        on = false;
    }
    return on ? 1 : 0;
}

}  // namespace sim
