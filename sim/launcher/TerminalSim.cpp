// terminal-sim: runs a program on the simulated terminal, with a script, a person or other programs
// to play the world.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "sim/launcher/Environment.h"
#include "sim/launcher/Run.h"
#include "sim/launcher/Send.h"

namespace fs = std::filesystem;

namespace {

struct Options {
    double speed = 1;
    std::string card;
    std::string script;
    std::string socket;
    bool isInteractive = false;
    bool hasPanel = false;
    std::vector<std::string> command;
};

int runIn(const std::string& root, const Options& options) {
    if (!launcher::prepare(root))
        return launcher::CannotRun;
    setenv(launcher::RootVariable, root.c_str(), 1);
    setenv(launcher::SpeedVariable, std::to_string(options.speed).c_str(), 1);
    setenv(launcher::CardVariable, options.card.c_str(), 1);
    setenv(launcher::ScriptVariable, options.script.c_str(), 1);
    // A program that changes its folder first still finds it.
    setenv(launcher::SocketVariable,
           options.socket.empty() ? "" : fs::absolute(options.socket).c_str(), 1);
    setenv(launcher::InteractiveVariable, options.isInteractive ? "1" : "", 1);
    const int status =
        options.hasPanel ? launcher::runOnPanel(options.command) : launcher::run(options.command);
    if (status < launcher::CannotRun && !launcher::hasTerminalRun(root)) {
        std::cerr << options.command[0]
                  << ": has run without the terminal, which needs a "
                     "dynamically linked program of its own architecture\n";
        return launcher::CannotRun;
    }
    return status;
}

/// With a temporary folder for the terminal's files.
int run(const Options& options) {
    std::error_code error;
    std::string root = fs::canonical(fs::temp_directory_path(error), error) / "terminal-XXXXXX";
    if (error || !mkdtemp(root.data())) {
        std::cerr << "terminal-sim: no temporary folder\n";
        return launcher::CannotRun;
    }
    const int status = runIn(root, options);
    fs::remove_all(root, error);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Runs a program on the simulated terminal.", "terminal-sim");
    Options options;
    app.add_option("--speed", options.speed, "how fast the terminal's time passes")
        ->check(CLI::Range(launcher::LeastSpeed, launcher::MostSpeed));
    app.add_option("--card", options.card, "a folder: its files are copied to the memory card")
        ->check(CLI::ExistingDirectory);
    app.add_option("--script", options.script, "console commands to play")
        ->check(CLI::ExistingFile);
    app.add_option("--socket", options.socket, "where \"terminal-sim send\" reaches the console");
    app.add_flag("--interactive", options.isInteractive,
                 "reads console commands from standard input");
    app.add_flag("--panel", options.hasPanel,
                 "shows the terminal's front panel; plain lines without a screen");
    app.add_option("program", options.command, "the program and its arguments, after --");
    std::string sendTo;
    std::vector<std::string> words;
    CLI::App* const sending =
        app.add_subcommand("send", "Sends a console command to a terminal started with --socket.");
    sending->add_option("path", sendTo, "the socket")->required();
    sending->add_option("command", words, "the command, in one or more words")->required();
    CLI11_PARSE(app, argc, argv);
    if (sending->parsed())
        return launcher::send(sendTo, CLI::detail::join(words, " "));
    if (options.command.empty()) {
        std::cerr << app.help();
        return launcher::CannotRun;
    }
    std::error_code ignored;
    if (fs::exists(fs::symlink_status(options.socket, ignored))) {
        std::cerr << options.socket << ": is there already, of another terminal perhaps\n";
        return launcher::ScriptFailed;
    }
    const int status = run(options);
    if (!options.socket.empty() && fs::is_socket(options.socket, ignored))
        fs::remove(options.socket, ignored);
    return status;
}
