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
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "sim/HostFiles.h"
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

[[noreturn]] void failWith(const std::string& name, const std::string& reason) {
    fprintf(stderr, "%s: %s\n", name.c_str(), reason.c_str());
    _exit(launcher::ScriptFailed);
}

/// A script in two parts: up to the first line that waits, and what follows.
class Script {
public:
    explicit Script(std::string path) : name(std::move(path)) {
        if (name.empty())
            return;
        const sim::HostFiles hostFiles;
        std::ifstream file(name);
        if (!file)
            fail("cannot be read");
        bool waits = false;
        for (std::string line; std::getline(file, line);) {
            std::string command;
            std::istringstream(line) >> command;
            waits = waits || command == "await" || command == "wait";
            (waits ? rest : beginning) += line + "\n";
            if (!waits)
                rest += "\n";  // the lines keep their numbers
        }
    }

    void begin(sim::Console& console) const { play(console, beginning); }
    void goOn(sim::Console& console) const { play(console, rest); }

private:
    [[noreturn]] void fail(const std::string& reason) const { failWith(name, reason); }

    void play(sim::Console& console, const std::string& lines) const {
        std::istringstream text(lines);
        const std::string wrong = console.run(text);
        if (!wrong.empty())
            fail(wrong);
    }

    std::string name;
    std::string beginning;
    std::string rest;
};

/// What stands around the terminal is there when the program starts.
void setUp(sim::Terminal& terminal, const Script& script) {
    const sim::HostTime hostTime;
    sim::Console console(terminal);
    script.begin(console);
    if (console.hasQuit())
        _exit(EXIT_SUCCESS);
}

void work(sim::Terminal& terminal, const Script& script, bool isInteractive, bool hasSocket,
          const char* prompt) {
    const sim::HostTime hostTime;
    sim::Console console(terminal);
    script.goOn(console);
    if (isInteractive && !console.hasQuit())
        console.converse(std::cin, std::cout, prompt);
    if (console.hasQuit())
        _exit(EXIT_SUCCESS);
    if (!hasSocket)
        terminal.power().setUnattended();
}

void serve(sim::Terminal& terminal, const std::string& path) {
    const sim::HostTime hostTime;
    try {
        sim::ConsoleSocket console(terminal, path);
        if (console.serve())
            _exit(EXIT_SUCCESS);
    } catch (const std::exception& error) {
        failWith("terminal-sim", error.what());
    }
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
    const std::string scriptName = takeVariable(launcher::ScriptVariable);
    const std::string socket = takeVariable(launcher::SocketVariable);
    const bool isInteractive = !takeVariable(launcher::InteractiveVariable).empty();
    const std::string screen = takeVariable(launcher::PanelVariable);
    unsetenv("LD_PRELOAD");  // what this program starts is not on a terminal of its own

    auto* const terminal = new sim::Terminal(root);
    const Script script(scriptName);
    const std::error_code uncopied =
        card.empty() ? std::error_code() : terminal->card().copyFrom(card);
    if (uncopied)
        failWith(card, uncopied.message());
    terminal->clock().setSpeed(strtod(speed.c_str(), nullptr));
    terminal->power().setLasting(isInteractive || !socket.empty());
    auto* const trace = new sim::Trace;
    auto* const panel = new sim::FrontPanel(*terminal);
    terminal->journal().watch([=](const sim::Journal::Entry& entry) {
        panel->see(entry);
        trace->print(entry);
    });
    setUp(*terminal, script);
    const sim::SignalsBlocked blocked;  // the program's signals are for its own threads
    // A panel has a prompt of its own.
    const char* const prompt = screen.empty() ? "> " : "";
    const bool hasSocket = !socket.empty();
    std::thread([=] { work(*terminal, script, isInteractive, hasSocket, prompt); }).detach();
    if (!screen.empty()) {
        const int panelEnd = atoi(screen.c_str());
        fcntl(panelEnd, F_SETFD, FD_CLOEXEC);
        std::thread([=] { show(*panel, panelEnd); }).detach();
    }
    if (hasSocket)
        std::thread([=] { serve(*terminal, socket); }).detach();
}

}  // namespace
