#pragma once

#include <string>
#include <vector>

namespace launcher {

constexpr int CannotRun = 127;  // exit status

/// Runs a program with the simulated terminal preloaded, which takes its orders from the
/// environment, and waits for it. The exit status: the program's, 128 and the signal's number if
/// one ended it, CannotRun if it could not be started. A Ctrl-C is the program's to handle.
int run(const std::vector<std::string>& command);

/// The same with the terminal's front panel on the screen, and the program's input and output in
/// it. Without a screen and a keyboard, or in a build without panel, as run().
int runOnPanel(const std::vector<std::string>& command);

}  // namespace launcher
