// terminal-sim: runs a program on the simulated terminal, with a script or a person to play the
// world.

#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "sim/launcher/Environment.h"

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
    bool isInteractive = false;
    std::vector<std::string> command;
    app.add_option("--speed", speed, "how fast the terminal's time passes")
        ->check(CLI::PositiveNumber);
    app.add_option("--card", card, "a folder: its files are copied to the memory card")
        ->check(CLI::ExistingDirectory);
    app.add_option("--script", script, "console commands to play")->check(CLI::ExistingFile);
    app.add_flag("--interactive", isInteractive, "reads console commands from standard input");
    app.add_option("program", command, "the program and its arguments, after --")->required();
    CLI11_PARSE(app, argc, argv);

    std::string root = (fs::temp_directory_path() / "terminal-XXXXXX").string();
    if (!mkdtemp(root.data())) {
        perror(root.c_str());
        return CannotRun;
    }
    setenv(launcher::RootVariable, root.c_str(), 1);
    setenv(launcher::SpeedVariable, std::to_string(speed).c_str(), 1);
    setenv(launcher::CardVariable, card.c_str(), 1);
    setenv(launcher::ScriptVariable, script.c_str(), 1);
    setenv(launcher::InteractiveVariable, isInteractive ? "1" : "", 1);

    const pid_t program = fork();
    if (program == 0) {
        setenv("LD_PRELOAD", (ownFolder() / TERMINAL_SIM_LIBRARY).c_str(), 1);
        runProgram(command);
    }
    const int status = program < 0 ? CannotRun : statusOf(program);
    std::error_code ignored;
    fs::remove_all(root, ignored);
    return status;
}
