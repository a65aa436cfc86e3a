#include "sim/launcher/Run.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "sim/launcher/Environment.h"
#ifdef TERMINAL_SIM_PANEL
#include "sim/launcher/Panel.h"
#endif

namespace fs = std::filesystem;

namespace launcher {
namespace {

/// The folder of this program's own file, where it is looked for relative to.
fs::path ownFolder() { return fs::read_symlink("/proc/self/exe").parent_path(); }

[[noreturn]] void runProgram(std::vector<std::string> command) {
    setenv("LD_PRELOAD", (ownFolder() / TERMINAL_SIM_LIBRARY).c_str(), 1);
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& word : command)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    perror(arguments[0]);
    _exit(CannotRun);
}

int statusOf(pid_t program) {
    if (program < 0)
        return CannotRun;
    signal(SIGINT, SIG_IGN);
    int status = 0;
    while (waitpid(program, &status, 0) < 0 && errno == EINTR) {}
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

#ifdef TERMINAL_SIM_PANEL

/// Both ends of what a program and its panel talk over.
struct PanelEnds {
    int output = -1, programOutput = -1;  // a pseudo-terminal
    int items = -1, programItems = -1;

    bool open() {
        int pair[2];
        if (openpty(&output, &programOutput, nullptr, nullptr, nullptr) != 0 ||
            socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair) != 0)
            return false;
        items = pair[0];
        programItems = pair[1];
        termios settings{};
        tcgetattr(programOutput, &settings);
        settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);  // the panel shows what is typed
        tcsetattr(programOutput, TCSANOW, &settings);
        return fcntl(output, F_SETFL, O_NONBLOCK) == 0;
    }
};

[[noreturn]] void runProgram(const std::vector<std::string>& command, const PanelEnds& ends) {
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(ends.programOutput, standard);
    for (const int inherited : {ends.output, ends.programOutput, ends.items})
        close(inherited);
    setenv(PanelVariable, std::to_string(ends.programItems).c_str(), 1);
    runProgram(command);
}

#endif

}  // namespace

int run(const std::vector<std::string>& command) {
    const pid_t program = fork();
    if (program == 0)
        runProgram(command);
    return statusOf(program);
}

int runOnPanel(const std::vector<std::string>& command) {
#ifdef TERMINAL_SIM_PANEL
    PanelEnds ends;
    if (isatty(STDIN_FILENO) && isatty(STDOUT_FILENO) && ends.open()) {
        const pid_t program = fork();
        if (program == 0)
            runProgram(command, ends);
        close(ends.programOutput);
        close(ends.programItems);
        signal(SIGINT, SIG_IGN);
        Panel(ends.output, ends.items).run();
        return statusOf(program);
    }
#endif
    return run(command);
}

}  // namespace launcher
