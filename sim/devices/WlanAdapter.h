#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "sim/Clock.h"
#include "sim/devices/KernelModules.h"
#include "sim/devices/NetworkInterface.h"

namespace sim {

/// The WLAN adapter on the mini-PCI slot, interface "ra0": there some time after it has got power
/// and a driver; up and down; associated with the one network in reach some time after a supplicant
/// has asked for it. Any thread may use it.
class WlanAdapter final : public NetworkInterface {
public:
    WlanAdapter(Journal& journal, KernelModules& modules);

    /// The slot's power and radio lines.
    void setPower(bool on);
    void setRadio(bool on);

    // The world around it.

    /// The network in reach, with its passphrase or WEP key ("": an open one). No name: none.
    void setNetwork(const std::string& ssid, const std::string& key);
    void setChannel(int channel);  ///< of the 2.4 GHz band
    void setFrequency(int32_t mantissa, int16_t exponent);
    void setSignal(int dBm);
    int signal() const;  ///< in dBm

    /// How long it takes, in simulated time, to be there and to associate; none: for ever.
    void appearAfter(std::optional<Nanoseconds> delay);
    void associateAfter(std::optional<Nanoseconds> delay);

    /// The network loses it; it associates again after the usual time.
    void drop();

    /// The next `times` requests of a number fail.
    void failNext(unsigned request, int error, int times = 1);

    /// From now on the driver tells a network's name of its own, and any length of it.
    void claimEssid(const std::string& bytes, uint16_t length);

    // The supplicant.

    /// It wants to join a network: its parameters as they were set.
    void join(const std::map<std::string, std::string>& parameters);
    void leave();

    std::string essid() const;  ///< "" while not associated

    bool isPresent() const override;
    int ioctl(unsigned long request, void* record) override;

private:
    struct Failure {
        int error, times;
    };
    struct Claim {
        std::string bytes;
        uint16_t length;
    };

    void refresh();
    bool isInReach() const;
    int fillEssid(void* record) const;
    int fillStatistics(void* record) const;

    KernelModules& modules;

    mutable std::mutex mutex;  // guards what follows
    bool hasPower = false;
    bool hasRadio = false;
    std::optional<Nanoseconds> readySince;  // power, radio and driver
    std::string networkName = "Warehouse";
    std::string networkKey = "forklift-7";
    int32_t mantissa = 241200000;
    int16_t exponent = 1;
    int8_t level = -50;
    std::optional<Nanoseconds> appearDelay = std::chrono::seconds(1);
    std::optional<Nanoseconds> associateDelay = std::chrono::seconds(2);
    std::optional<Nanoseconds> joinedAt;
    std::map<std::string, std::string> wanted;  // the parameters of the supplicant's network
    std::optional<Claim> claim;
    std::map<unsigned long, Failure> failures;
};

}  // namespace sim
