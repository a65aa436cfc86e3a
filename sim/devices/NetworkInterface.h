#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string>

#include "sim/Journal.h"

namespace sim {

/// A network interface of the terminal, as the requests on any socket see it. Any thread may use
/// it.
class NetworkInterface {
public:
    using HardwareAddress = std::array<uint8_t, 6>;

    NetworkInterface(std::string name, Journal& journal, const HardwareAddress& hardwareAddress);
    NetworkInterface(const NetworkInterface&) = delete;
    NetworkInterface& operator=(const NetworkInterface&) = delete;
    virtual ~NetworkInterface() = default;

    const std::string& name() const { return ownName; }

    /// What is not present answers nothing, and comes back down and without an address.
    virtual bool isPresent() const;
    void setPresent(bool present);

    bool isUp() const;
    void setUp(bool up);

    std::string address() const;  ///< dotted; "" for none
    void setAddress(const std::string& dotted);

    /// A request whose record names this interface.
    virtual int ioctl(unsigned long request, void* argument);

protected:
    /// It has gone: what was set does not outlive it.
    void reset();

    Journal& journal;

private:
    const std::string ownName;
    const HardwareAddress hardware;

    mutable std::mutex mutex;  // guards what follows
    bool present = false;
    bool up = false;
    std::string ipAddress;
};

}  // namespace sim
