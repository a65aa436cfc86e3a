#pragma once

#include <array>
#include <functional>
#include <mutex>
#include <vector>

#include "sim/Device.h"
#include "sim/Journal.h"

namespace sim {

class ModemPower;

/// "/dev/pwrctrl": the control lines, the supplies and the keyboard backlight.
class PowerControl : public Device {
public:
    static constexpr unsigned LineCount = 16;
    static constexpr unsigned SupplyCount = 8;

    PowerControl(Journal& journal, ModemPower& modem);

    int line(unsigned number) const;  ///< 0 or 1
    bool supply(unsigned number) const;
    int keyboardLight() const;

    /// Calls `react` with the state whenever supply `number` is switched, on the switching thread.
    void onSupply(unsigned number, std::function<void(bool)> react);

    int ioctl(unsigned long request, void* argument) override;

private:
    struct Reaction {
        unsigned supply;
        std::function<void(bool)> react;
    };

    int setLine(unsigned number, int level);
    int readLine(unsigned number);
    int setSupply(unsigned number, bool on);
    int setKeyboardLight(const char* how, unsigned level);

    Journal& journal;
    ModemPower& modem;
    std::vector<Reaction> reactions;  // complete before the terminal runs

    mutable std::mutex mutex;  // guards what follows
    std::array<int, LineCount> lines{};
    std::array<bool, SupplyCount> supplies{};
    int light = 0;
};

}  // namespace sim
