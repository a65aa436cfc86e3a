#include "sim/devices/NetworkInterface.h"

#include <arpa/inet.h>
#include <net/if_arp.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "network/WlanProtocol.h"
#include "sim/Device.h"

namespace sim {
namespace {

/// A generic socket address in 16 bytes, as the kernel copies it into a request.
template <class Address> void put(wlan::InterfaceRecord& record, const Address& address) {
    static_assert(sizeof address == sizeof record.address);
    memcpy(record.address, &address, sizeof address);
}

}  // namespace

NetworkInterface::NetworkInterface(std::string interfaceName, Journal& eventJournal,
                                   const HardwareAddress& hardwareAddress)
    : journal(eventJournal), ownName(std::move(interfaceName)), hardware(hardwareAddress) {}

bool NetworkInterface::isPresent() const {
    const std::lock_guard<std::mutex> held(mutex);
    return present;
}

void NetworkInterface::setPresent(bool nowPresent) {
    const std::lock_guard<std::mutex> held(mutex);
    present = nowPresent;
    if (present)
        return;
    up = false;
    ipAddress.clear();
}

void NetworkInterface::reset() {
    const std::lock_guard<std::mutex> held(mutex);
    up = false;
    ipAddress.clear();
}

bool NetworkInterface::isUp() const {
    const std::lock_guard<std::mutex> held(mutex);
    return up;
}

void NetworkInterface::setUp(bool nowUp) {
    {
        const std::lock_guard<std::mutex> held(mutex);
        if (std::exchange(up, nowUp) == nowUp)
            return;
    }
    journal.note(ownName, nowUp ? "up" : "down");
}

std::string NetworkInterface::address() const {
    const std::lock_guard<std::mutex> held(mutex);
    return ipAddress;
}

void NetworkInterface::setAddress(const std::string& dotted) {
    {
        const std::lock_guard<std::mutex> held(mutex);
        if (std::exchange(ipAddress, dotted) == dotted)
            return;
    }
    journal.note(ownName, dotted.empty() ? "no address" : "address " + dotted);
}

int NetworkInterface::ioctl(unsigned long request, void* argument) {
    wlan::InterfaceRecord& record = *static_cast<wlan::InterfaceRecord*>(argument);
    if (!isPresent())
        return failWith(ENODEV);
    switch (request) {
    case wlan::GetInterfaceFlags: {
        constexpr int16_t OtherFlags = 0x1002;  // broadcast, multicast
        record.flags = static_cast<int16_t>(OtherFlags | (isUp() ? wlan::InterfaceUp : 0));
        return 0;
    }
    case wlan::SetInterfaceFlags: setUp((record.flags & wlan::InterfaceUp) != 0); return 0;
    case wlan::GetInterfaceAddress: {
        sockaddr_in ip{};
        ip.sin_family = AF_INET;
        if (inet_pton(AF_INET, address().c_str(), &ip.sin_addr) != 1)
            return failWith(EADDRNOTAVAIL);
        put(record, ip);
        return 0;
    }
    case wlan::GetHardwareAddress: {
        sockaddr mac{};
        mac.sa_family = ARPHRD_ETHER;
        memcpy(mac.sa_data, hardware.data(), hardware.size());
        put(record, mac);
        return 0;
    }
    default: return failWith(EOPNOTSUPP);
    }
}

}  // namespace sim
