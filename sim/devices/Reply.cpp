#include "sim/devices/Reply.h"

#include <algorithm>
#include <utility>

#include "sim/Text.h"

namespace sim {

template <class Member, class Value> Reply Reply::with(Member Reply::*member, Value value) const {
    Reply bent = *this;
    bent.*member = std::move(value);
    return bent;
}

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

Reply Reply::silence() { return normal().with(&Reply::kind, Kind::Silence); }

Reply Reply::after(Nanoseconds newDelay) const { return with(&Reply::delay, newDelay); }

Reply Reply::cut(size_t size) const { return with(&Reply::most, size); }

Reply Reply::garbled() const { return with(&Reply::isGarbled, true); }

Reply Reply::withoutEcho() const { return with(&Reply::isEchoed, false); }

Reply Reply::then(std::function<void()> newAction) const {
    return with(&Reply::action, std::move(newAction));
}

std::string Reply::bend(std::string bytes) const {
    bytes.resize(std::min(bytes.size(), most));
    if (isGarbled)
        std::transform(bytes.begin(), bytes.end(), bytes.begin(), garbledByte);
    return bytes;
}

bool ReplyRule::takes(const std::string& line) {
    const bool isBeginning = !command.empty() && command.back() == '*';
    const size_t size = command.size() - (isBeginning ? 1 : 0);
    if (timesLeft <= 0 || line.compare(0, size, command, 0, size) != 0 ||
        (!isBeginning && line.size() != size))
        return false;
    if (timesLeft != INT_MAX)
        --timesLeft;
    return true;
}

}  // namespace sim
