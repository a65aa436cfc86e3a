#pragma once

#include <array>
#include <functional>
#include <map>
#include <mutex>

#include "sim/Device.h"
#include "sim/Journal.h"

namespace sim {

/// "/dev/pwrctrl": the control lines, the supplies and the keyboard backlight.
class PowerControl : public Device {
public:
    static constexpr unsigned LineCount = 16;
    static constexpr unsigned SupplyCount = 8;

    explicit PowerControl(Journal& eventJournal) : journal(eventJournal) {}

    int line(unsigned number) const;  ///< 0 or 1
    bool supply(unsigned number) const;
    int keyboardLight() const;

    /// Calls `react` with the state whenever supply or line `number` is driven, on the driving
    /// thread.
    void onSupply(unsigned number, std::function<void(bool)> react);
    void onLine(unsigned number, std::function<void(bool)> react);

    /// Has a reading of line `number` answered by whoever drives it.
    void onReading(unsigned number, std::function<int()> read);

    int ioctl(unsigned long request, void* argument) override;

private:
    using Reactions = std::multimap<unsigned, std::function<void(bool)>>;  // by number

    int setLine(unsigned number, int level);
    int readLine(unsigned number);
    int setSupply(unsigned number, bool on);
    int setKeyboardLight(const char* how, unsigned level);
    static void tell(const Reactions& reactions, unsigned number, bool state);

    Journal& journal;
    // Complete before the terminal runs.
    Reactions supplyReactions, lineReactions;
    std::map<unsigned, std::function<int()>> readings;

    mutable std::mutex mutex;                // guards what follows
    std::array<int, LineCount> lines{1, 1};  // the LEDs are dark at first
    std::array<bool, SupplyCount> supplies{};
    int light = 0;
};

}  // namespace sim
