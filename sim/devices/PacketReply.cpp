#include "sim/devices/PacketReply.h"

namespace sim {

template <class Member, class Value>
PacketReply PacketReply::with(Member PacketReply::*member, Value value) const {
    PacketReply bent = *this;
    bent.*member = value;
    return bent;
}

PacketReply PacketReply::unconfirmed() { return normal().with(&PacketReply::isConfirmed, false); }

PacketReply PacketReply::refusal(uint8_t status) {
    return normal().with(&PacketReply::refusedWith, status);
}

PacketReply PacketReply::after(Nanoseconds lateness) const {
    return with(&PacketReply::delay, lateness);
}

PacketReply PacketReply::cut(size_t size) const { return with(&PacketReply::mostBytes, size); }

PacketReply PacketReply::garbled() const { return with(&PacketReply::isGarbled, true); }

PacketReply PacketReply::twice() const { return with(&PacketReply::isDoubled, true); }

PacketReply PacketReply::sized(size_t size) const { return with(&PacketReply::payloadSize, size); }

PacketReply PacketReply::confirming(uint8_t otherOpcode) const {
    return with(&PacketReply::opcode, otherOpcode);
}

}  // namespace sim
