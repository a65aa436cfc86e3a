#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <stdexcept>
#include <string>

#include "Output.h"

namespace ctl {

/// What the program ends with.
enum Status : int {
    Done = 0,
    Failed = 1,      ///< a device, a file or a link
    WrongUsage = 2,  ///< of the command line or of a file of settings
    Nothing = 3      ///< the time is over, or what was asked for is not there
};

/// Ends a command. Thrown on the main thread only.
class Failure : public std::runtime_error {
public:
    Failure(Status endStatus, const std::string& reason)
        : std::runtime_error(reason), status(endStatus) {}

    const Status status;
};

/// What a command does, once its arguments have been read.
using Action = std::function<Status(Output&)>;

/// The action of the command that the command line names; it is carried out when all of the line
/// has been read.
class Choice {
public:
    /// Makes `action` the one of a command.
    void offer(CLI::App& command, Action action) {
        command.callback([this, action = std::move(action)] { chosen = action; });
    }

    Status carryOut(Output& output) const { return chosen(output); }

private:
    Action chosen;
};

// Each declares what stands behind its name on the command line: arguments, options, further
// commands.
void declarePower(Choice& choice, CLI::App& command);
void declareBattery(Choice& choice, CLI::App& command);
void declareScan(Choice& choice, CLI::App& command);
void declareRfid(Choice& choice, CLI::App& command);
void declareGprs(Choice& choice, CLI::App& command);
void declareWlan(Choice& choice, CLI::App& command);
void declareBluetooth(Choice& choice, CLI::App& command);
void declareIni(Choice& choice, CLI::App& command);
void declareLog(Choice& choice, CLI::App& command);
void declareInfo(Choice& choice, CLI::App& command);

/// Declares a command among those of `group`, of which one has to be given.
CLI::App& commandIn(CLI::App& group, const char* name, const char* what);

/// Declares an option for a time in seconds, 0 or more.
void declareSeconds(CLI::App& command, const char* name, double& seconds, const char* what);

/// Seconds as milliseconds.
int millisecondsOf(double seconds);

}  // namespace ctl
