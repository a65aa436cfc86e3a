#pragma once

#include <cstddef>

/// How the terminal's programs reach the terminal: by sequenced packets on a socket in its root
/// folder. A packet is a list of words, each ended by a zero byte. The program speaks first, each
/// of its packets is answered by one.
namespace door {

constexpr char RootVariable[] = "TERMINAL_SIM_FILES";  // the root folder, in the environment
constexpr char SocketPath[] = "/.door";  // below it, where no path of the terminal leads

constexpr size_t LongestPacket = 65536;

// First words of what every program may say. The rest is the program's own.
constexpr char Begin[] = "begin";    // its and its parent's number, name and arguments: the answer
                                     // is "", "exit STATUS" or "kill SIGNAL"
constexpr char Daemon[] = "daemon";  // its number: it goes on in the background from here

}  // namespace door
