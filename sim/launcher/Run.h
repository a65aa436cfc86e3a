#pragma once

#include <string>
#include <vector>

namespace launcher {

constexpr int CannotRun = 127;  // exit status

/// Has programs start on the simulated terminal in the folder `root`, whose library then has a link
/// there. False, with a word on standard error, when they would start without.
bool prepare(const std::string& root);

/// Whether a program has come up on the terminal in that folder.
bool hasTerminalRun(const std::string& root);

/// Runs a program on the terminal that has been prepared, which takes its orders from the
/// environment, and waits for it. The exit status: the program's, 128 and the signal's number if
/// one ended it, CannotRun if it could not be started. Meanwhile the signals that end a program
/// are for that one: those of the keyboard, and SIGTERM and SIGHUP, which are passed on to it.
int run(const std::vector<std::string>& command);

/// The same with the terminal's front panel on the screen, and the program's input and output in
/// it. Without a screen and a keyboard, or in a build without panel, as run().
int runOnPanel(const std::vector<std::string>& command);

}  // namespace launcher
