#pragma once

#include <string>

#include "sim/console/Console.h"

namespace sim {

/// The console on a Unix stream socket. A client connects, sends one command line, and reads until
/// the end: "ok" or "failed" in the first line, what the command says in the rest. One client at a
/// time; the next one waits.
class ConsoleSocket {
public:
    /// Binds `path`, a name of the host. Throws std::runtime_error when that cannot be done.
    ConsoleSocket(Terminal& terminal, const std::string& path);
    ConsoleSocket(const ConsoleSocket&) = delete;
    ConsoleSocket& operator=(const ConsoleSocket&) = delete;
    ~ConsoleSocket();

    /// Serves clients until one of them has sent "quit". False when the socket has gone before.
    bool serve();

private:
    void answer(int client);

    Console console;
    const int listener;
};

}  // namespace sim
