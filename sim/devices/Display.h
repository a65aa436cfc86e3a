#pragma once

#include <mutex>

#include "sim/Device.h"
#include "sim/Journal.h"

namespace sim {

/// "/dev/oled": the display with its brightness, and a picture that can be frozen.
class Display : public Device {
public:
    explicit Display(Journal& journal);

    bool isOn() const;
    bool isFrozen() const;
    int brightness() const;

    int ioctl(unsigned long request, void* argument) override;

private:
    Journal& journal;

    mutable std::mutex mutex;  // guards what follows
    bool on = false;
    bool frozen = false;
    int level = 0;
};

}  // namespace sim
