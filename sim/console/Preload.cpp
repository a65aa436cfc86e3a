// What happens when a program is started with the terminal preloaded: before main() the terminal
// comes up, and its console begins to work on a thread of its own. The launcher says how, in the
// environment.

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

#include "sim/HostTime.h"
#include "sim/SignalsBlocked.h"
#include "sim/Terminal.h"
#include "sim/console/Console.h"
#include "sim/console/ConsoleSocket.h"
#include "sim/console/FrontPanel.h"
#include "sim/console/Trace.h"
#include "sim/launcher/Environment.h"
#include "sim/launcher/PanelItem.h"

namespace {

std::string takeVariable(const char* name) {
    const char* const value = getenv(name);
    std::string text = value ? value : "";
    unsetenv(name);
    return text;
}

constexpr timespec PanelPeriod{0, 100'000'000};

void work(sim::Terminal& terminal, const std::string& script, bool isInteractive,
          const char* prompt) {
    const sim::HostTime hostTime;
    sim::Console console(terminal);
    if (!script.empty()) {
        std::ifstream file(script);
        const std::string wrong = file ? console.run(file) : "cannot be read";
        if (!wrong.empty()) {
            fprintf(stderr, "%s: %s\n", script.c_str(), wrong.c_str());
            _exit(launcher::ScriptFailed);
        }
    }
    if (isInteractive && !console.hasQuit())
        console.converse(std::cin, std::cout, prompt);
    if (console.hasQuit())
        _exit(EXIT_SUCCESS);
}

void serve(sim::Terminal& terminal, const std::string& path) {
    const sim::HostTime hostTime;
    try {
        sim::ConsoleSocket console(terminal, path);
        console.serve();
    } catch (const std::exception& error) {
        fprintf(stderr, "terminal-sim: %s\n", error.what());
        _exit(launcher::ScriptFailed);
    }
    _exit(EXIT_SUCCESS);
}

/// Tells the front panel what has changed since it was last told, until it is gone.
void show(const sim::FrontPanel& panel, int screen) {
    const sim::HostTime hostTime;
    std::string shown;
    for (;; nanosleep(&PanelPeriod, nullptr)) {
        const std::string message = launcher::toMessage(panel.items());
        if (message == shown)
            continue;
        if (::send(screen, message.data(), message.size(), MSG_NOSIGNAL) < 0)
            return;
        shown = message;
    }
}

/// The terminal lives as long as the process: the launcher removes its files.
__attribute__((constructor)) void startTerminal() {
    if (!getenv(launcher::RootVariable))
        return;
    static const std::ios_base::Init streams;  // the console may come before their own start
    const std::string root = takeVariable(launcher::RootVariable);
    const std::string speed = takeVariable(launcher::SpeedVariable);
    const std::string card = takeVariable(launcher::CardVariable);
    const std::string script = takeVariable(launcher::ScriptVariable);
    const std::string socket = takeVariable(launcher::SocketVariable);
    const bool isInteractive = !takeVariable(launcher::InteractiveVariable).empty();
    const std::string screen = takeVariable(launcher::PanelVariable);
    unsetenv("LD_PRELOAD");  // what this program starts is not on a terminal of its own

    auto* const terminal = new sim::Terminal(root);
    if (!card.empty())
        terminal->card().copyFrom(card);
    terminal->clock().setSpeed(strtod(speed.c_str(), nullptr));
    terminal->power().setLasting(isInteractive || !socket.empty());
    auto* const trace = new sim::Trace;
    auto* const panel = new sim::FrontPanel(*terminal);
    terminal->journal().watch([=](const sim::Journal::Entry& entry) {
        panel->see(entry);
        trace->print(entry);
    });
    const sim::SignalsBlocked blocked;  // the program's signals are for its own threads
    // A panel has a prompt of its own.
    const char* const prompt = screen.empty() ? "> " : "";
    std::thread([=] { work(*terminal, script, isInteractive, prompt); }).detach();
    if (!screen.empty()) {
        const int panelEnd = atoi(screen.c_str());
        fcntl(panelEnd, F_SETFD, FD_CLOEXEC);
        std::thread([=] { show(*panel, panelEnd); }).detach();
    }
    if (!socket.empty())
        std::thread([=] { serve(*terminal, socket); }).detach();
}

}  // namespace
