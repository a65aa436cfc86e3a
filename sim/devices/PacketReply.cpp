#include "sim/devices/PacketReply.h"

namespace sim {

PacketReply PacketReply::unconfirmed() {
    PacketReply reply;
    reply.isConfirmed = false;
    return reply;
}

PacketReply PacketReply::refusal(uint8_t status) {
    PacketReply reply;
    reply.refusedWith = status;
    return reply;
}

PacketReply PacketReply::after(Nanoseconds lateness) const {
    PacketReply reply = *this;
    reply.delay = lateness;
    return reply;
}

PacketReply PacketReply::cut(size_t size) const {
    PacketReply reply = *this;
    reply.mostBytes = size;
    return reply;
}

PacketReply PacketReply::garbled() const {
    PacketReply reply = *this;
    reply.isGarbled = true;
    return reply;
}

PacketReply PacketReply::twice() const {
    PacketReply reply = *this;
    reply.isDoubled = true;
    return reply;
}

PacketReply PacketReply::sized(size_t size) const {
    PacketReply reply = *this;
    reply.payloadSize = size;
    return reply;
}

PacketReply PacketReply::confirming(uint8_t otherOpcode) const {
    PacketReply reply = *this;
    reply.opcode = otherOpcode;
    return reply;
}

}  // namespace sim
