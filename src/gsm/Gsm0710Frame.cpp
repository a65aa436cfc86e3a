#include "gsm/Gsm0710Frame.h"

#include "gsm/Gsm0710Protocol.h"

namespace {

constexpr unsigned char without(unsigned char octet, unsigned char bit) {
    return static_cast<unsigned char>(octet & ~bit);
}

}  // namespace

bool Gsm0710Frame::matchControl(unsigned char type) const {
    return without(control, gsm0710::PollFinal) == type;
}

bool Gsm0710Frame::matchCmdType(unsigned char type) const {
    return data && without(data[0], gsm0710::CommandResponseBit) == type;
}
