// terminal-sim: runs a program on the simulated terminal, with a script, a person or other programs
// to play the world.

#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "sim/launcher/Environment.h"
#include "sim/launcher/Send.h"

namespace fs = std::filesystem;

namespace {

constexpr int CannotRun = 127;

/// The folder of this program's own file, where it is looked for relative to.
fs::path ownFolder() { return fs::read_symlink("/proc/self/exe").parent_path(); }

[[noreturn]] void runProgram(std::vector<std::string> command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& word : command)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    perror(arguments[0]);
    _exit(CannotRun);
}

/// Waits for the program; a Ctrl-C is the program's to handle.
int statusOf(pid_t program) {
    signal(SIGINT, SIG_IGN);
    int status = 0;
    while (waitpid(program, &status, 0) < 0 && errno == EINTR) {}
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Runs a program on the simulated terminal.", "terminal-sim");
    double speed = 1;
    std::string card;
    std::string script;
    std::string socket;
    bool isInteractive = false;
    std::vector<std::string> command;
    app.add_option("--speed", speed, "how fast the terminal's time passes")
        ->check(CLI::PositiveNumber);
    app.add_option("--card", card, "a folder: its files are copied to the memory card")
        ->check(CLI::ExistingDirectory);
    app.add_option("--script", script, "console commands to play")->check(CLI::ExistingFile);
    app.add_option("--socket", socket, "where \"terminal-sim send\" reaches the console");
    app.add_flag("--interactive", isInteractive, "reads console commands from standard input");
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
        return CannotRun;
    }

    std::string root = (fs::temp_directory_path() / "terminal-XXXXXX").string();
    if (!mkdtemp(root.data())) {
        perror(root.c_str());
        return CannotRun;
    }
    setenv(launcher::RootVariable, root.c_str(), 1);
    setenv(launcher::SpeedVariable, std::to_string(speed).c_str(), 1);
    setenv(launcher::CardVariable, card.c_str(), 1);
    setenv(launcher::ScriptVariable, script.c_str(), 1);
    // A program that changes its folder first still finds it.
    setenv(launcher::SocketVariable, socket.empty() ? "" : fs::absolute(socket).c_str(), 1);
    setenv(launcher::InteractiveVariable, isInteractive ? "1" : "", 1);

    const pid_t program = fork();
    if (program == 0) {
        setenv("LD_PRELOAD", (ownFolder() / TERMINAL_SIM_LIBRARY).c_str(), 1);
        runProgram(command);
    }
    const int status = program < 0 ? CannotRun : statusOf(program);
    std::error_code ignored;
    fs::remove_all(root, ignored);
    if (!socket.empty() && fs::is_socket(socket, ignored))
        fs::remove(socket, ignored);
    return status;
}
