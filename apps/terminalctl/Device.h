#pragma once

#include "Commands.h"
#include "power/PowerManager.h"

namespace ctl {

/// The power manager for the length of a scope: what else of the library is used lives inside it.
class Device {
public:
    Device() {
        if (!PowerManager::initPowerManager())
            throw Failure(Failed, "the power manager does not start");
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    ~Device() { PowerManager::deinitPowerManager(); }

    PowerManager* operator->() const { return PowerManager::getPowerManager(); }
};

}  // namespace ctl
