#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/Clock.h"

namespace sim {

/// How the packet module confirms a request. Made by one of the functions, then bent:
/// `PacketReply::normal().after(200ms).twice()`.
class PacketReply {
public:
    static PacketReply normal() { return {}; }
    /// Does what it is asked, and does not confirm it.
    static PacketReply unconfirmed();
    static PacketReply refusal(uint8_t status = 1);  ///< does nothing, and says so

    PacketReply after(Nanoseconds lateness) const;      ///< late by this much simulated time
    PacketReply cut(size_t size) const;                 ///< only the first bytes of the packet
    PacketReply garbled() const;                        ///< with a wrong checksum
    PacketReply twice() const;                          ///< the same packet again
    PacketReply sized(size_t size) const;               ///< a payload cut, or filled up with 0
    PacketReply confirming(uint8_t otherOpcode) const;  ///< for a request that nobody has made

private:
    friend class PacketBluetoothModule;

    template <class Member, class Value>
    PacketReply with(Member PacketReply::*member, Value value) const;

    bool isConfirmed = true;
    bool isGarbled = false;
    bool isDoubled = false;
    uint8_t refusedWith = 0;  // 0: not refused
    int opcode = -1;          // -1: the request's
    Nanoseconds delay{0};
    size_t mostBytes = std::string::npos;
    size_t payloadSize = std::string::npos;
};

}  // namespace sim
