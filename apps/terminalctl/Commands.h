#pragma once

#include <stdexcept>
#include <string>

#include "CommandLine.h"
#include "Output.h"

namespace ctl {

/// Ends a command. Thrown on the main thread only.
class Failure : public std::runtime_error {
public:
    Failure(Status endStatus, const std::string& reason)
        : std::runtime_error(reason), status(endStatus) {}

    const Status status;
};

// Each declares a command: its arguments, options and further commands.
void declarePower(Command command);
void declareBattery(Command command);
void declareScan(Command command);
void declareRfid(Command command);
void declareGprs(Command command);
void declareWlan(Command command);
void declareBluetooth(Command command);
void declareIni(Command command);
void declareLog(Command command);
void declareInfo(Command command);

}  // namespace ctl
