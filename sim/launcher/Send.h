#pragma once

#include <string>

namespace launcher {

/// Sends one command to the console of a running terminal and prints what it says. The exit status:
/// 0 when the command was carried out, 1 when it failed, 2 when there is no terminal.
int send(const std::string& socketPath, const std::string& command);

}  // namespace launcher
