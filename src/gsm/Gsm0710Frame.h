#pragma once

#include <memory>

#include "gsm/Gsm0710Protocol.h"

/// One frame received from the radio module: what the 07.10 frame buffer cuts out of the stream and
/// the multiplexer engine handles. A plain record; whoever holds it may change it.
class Gsm0710Frame {
public:
    /// True when the frame is of this type, whatever its poll/final bit.
    bool matchControl(unsigned char type) const {
        return (control & ~unsigned{gsm0710::PollFinal}) == type;
    }

    /// True when the frame carries a control-channel message of this type, command or response.
    /// Without data it carries none.
    bool matchCmdType(unsigned char type) const {
        return data && (data[0] & ~unsigned{gsm0710::CommandResponseBit}) == type;
    }

    unsigned char channel = 0;              ///< 0 to 63
    unsigned char control = 0;              ///< as received, poll/final bit included
    std::unique_ptr<unsigned char[]> data;  ///< the information field, null when `length` is 0
    unsigned int length = 0;                ///< octets in `data`, at most 127
};
