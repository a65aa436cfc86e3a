#pragma once

#include <termios.h>

namespace io {

/// Before the close of a serial device, which waits until everything has been sent: with flow
/// control on, for a device that takes nothing. Switches that off and empties both queues.
inline void prepareSerialClose(int descriptor) {
    termios settings{};
    if (tcgetattr(descriptor, &settings) == 0) {
        settings.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
        tcsetattr(descriptor, TCSANOW, &settings);
    }
    tcflush(descriptor, TCIOFLUSH);
}

}  // namespace io
