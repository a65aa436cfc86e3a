#include "sim/devices/RadioReply.h"

#include <utility>

namespace sim {

Reply Reply::normal() { return {}; }

Reply Reply::ok(const std::string& lines) { return final("OK", lines); }

Reply Reply::error() { return final("ERROR"); }

Reply Reply::error(int code) { return final("+CME ERROR: " + std::to_string(code)); }

Reply Reply::final(const std::string& result, const std::string& lines) {
    Reply reply;
    reply.kind = Kind::Lines;
    reply.lines = lines;
    reply.result = result;
    return reply;
}

Reply Reply::raw(const std::string& bytes) {
    Reply reply;
    reply.kind = Kind::Raw;
    reply.result = bytes;
    return reply;
}

Reply Reply::silence() {
    Reply reply;
    reply.kind = Kind::Silence;
    return reply;
}

Reply Reply::after(Nanoseconds newDelay) const {
    Reply bent = *this;
    bent.delay = newDelay;
    return bent;
}

Reply Reply::cut(size_t size) const {
    Reply bent = *this;
    bent.most = size;
    return bent;
}

Reply Reply::garbled() const {
    Reply bent = *this;
    bent.isGarbled = true;
    return bent;
}

Reply Reply::withoutEcho() const {
    Reply bent = *this;
    bent.isEchoed = false;
    return bent;
}

Reply Reply::then(std::function<void()> newAction) const {
    Reply bent = *this;
    bent.action = std::move(newAction);
    return bent;
}

}  // namespace sim
