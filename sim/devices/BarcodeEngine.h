#pragma once

#include <mutex>
#include <string>

#include "sim/Journal.h"
#include "sim/SerialLine.h"

namespace sim {

/// The barcode engine on its serial line: scans while it has been told to, until it has read a code
/// or is told to stop. Without power it hears and says nothing.
class BarcodeEngine final : public LinePeer {
public:
    BarcodeEngine(Journal& journal, SerialLine& line);

    void setPowered(bool powered);

    /// Holds a code before the engine until it has been read. Sent with carriage return and line
    /// feed.
    void present(const std::string& code);
    void takeAway();

    /// Sends any bytes, as an engine with a fault or a wild setting would; now or after a delay.
    void transmit(std::string_view bytes, Nanoseconds delay = Nanoseconds(0));

    /// Deaf and dumb until told otherwise.
    void setSilent(bool silent);

    bool isScanning() const;

    void received(std::string_view bytes) override;

private:
    void obey(const std::string& command);
    void readCode();

    Journal& journal;
    SerialLine& line;

    mutable std::mutex mutex;  // guards what follows
    bool isPowered = false;
    bool isSilent = false;
    bool scanning = false;
    std::string code;     // before the engine; empty: none
    std::string pending;  // the beginning of a command
};

}  // namespace sim
