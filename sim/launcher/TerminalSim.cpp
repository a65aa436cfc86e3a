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

int main(int argc, char** argv) {
    CLI::App app("Runs a program on the simulated terminal.", "terminal-sim");
    double speed = 1;
    std::string card;
    std::string script;
    std::string socket;
    bool isInteractive = false;
    bool hasPanel = false;
    std::vector<std::string> command;
    app.add_option("--speed", speed, "how fast the terminal's time passes")
        ->check(CLI::PositiveNumber);
    app.add_option("--card", card, "a folder: its files are copied to the memory card")
        ->check(CLI::ExistingDirectory);
    app.add_option("--script", script, "console commands to play")->check(CLI::ExistingFile);
    app.add_option("--socket", socket, "where \"terminal-sim send\" reaches the console");
    app.add_flag("--interactive", isInteractive, "reads console commands from standard input");
    app.add_flag("--panel", hasPanel,
                 "shows the terminal's front panel; plain lines without a screen");
    app.add_option("program", command, "the program and its arguments, after --");
    std::string sendTo;
    std::vector<std::string> words;
    CLI::App* const sending =
        app.add_subcommand("send", "Sends a console command to a terminal started with --socket.");
    sending->add_option("path", sendTo, "the socket")->required();
    sending->add_option("command", words, "the command, in one or more words")->required();
    CLI11_PARSE(app, argc, argv);
    if (sending->parsed())
        return launcher::send(sendTo, CLI::detail::join(words, " "));
    if (command.empty()) {
        std::cerr << app.help();
        return launcher::CannotRun;
    }

    std::string root = (fs::temp_directory_path() / "terminal-XXXXXX").string();
    if (!mkdtemp(root.data())) {
        perror(root.c_str());
        return launcher::CannotRun;
    }
    setenv(launcher::RootVariable, root.c_str(), 1);
    setenv(launcher::SpeedVariable, std::to_string(speed).c_str(), 1);
    setenv(launcher::CardVariable, card.c_str(), 1);
    setenv(launcher::ScriptVariable, script.c_str(), 1);
    // A program that changes its folder first still finds it.
    setenv(launcher::SocketVariable, socket.empty() ? "" : fs::absolute(socket).c_str(), 1);
    setenv(launcher::InteractiveVariable, isInteractive ? "1" : "", 1);

    const int status = hasPanel ? launcher::runOnPanel(command) : launcher::run(command);
    std::error_code ignored;
    fs::remove_all(root, ignored);
    if (!socket.empty() && fs::is_socket(socket, ignored))
        fs::remove(socket, ignored);
    return status;
}
