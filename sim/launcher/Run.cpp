#include "sim/launcher/Run.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "sim/launcher/Environment.h"
#include "sim/programs/DoorProtocol.h"
#ifdef TERMINAL_SIM_PANEL
#include "sim/launcher/Panel.h"
#endif

namespace fs = std::filesystem;

namespace launcher {
namespace {

/// The folder of this program's own file, where it is looked for relative to.
fs::path ownFolder() { return fs::read_symlink("/proc/self/exe").parent_path(); }

// The keyboard sends these to the program as well.
constexpr int KeyboardSignals[] = {SIGINT, SIGQUIT};
constexpr int PassedSignals[] = {SIGTERM, SIGHUP};

std::atomic<pid_t> program{0};  // 0: none

void passOn(int signal) {
    const int before = errno;
    if (program > 0)
        kill(program, signal);
    errno = before;
}

/// Signals that were ignored stay so, for a program under nohup.
void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN)
        return;
    action.sa_handler = handler;
    sigaction(signal, &action, nullptr);
}

/// Forks, as fork() does. From then on signals do not end this process, so that it can clean up
/// behind the program; should it be killed, the program is told to end.
pid_t forkProgram() {
    sigset_t all, before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before);
    const pid_t forked = fork();
    if (forked == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
    } else {
        program = forked;
        for (const int signal : KeyboardSignals)
            handle(signal, SIG_IGN);
        for (const int signal : PassedSignals)
            handle(signal, passOn);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return forked;
}

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

int statusOf(pid_t started) {
    if (started < 0)
        return CannotRun;
    int status = 0;
    while (waitpid(started, &status, 0) < 0 && errno == EINTR) {}
    program = 0;
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

/// The system takes blanks and colons in the list of libraries for its separators, and starts a
/// program all the same without a library that it does not find: nothing would stand between that
/// and the host. The link keeps names of other folders out of the list.
bool prepare(const std::string& root) {
    const fs::path library = ownFolder() / TERMINAL_SIM_LIBRARY;
    const std::string link = root + "/.library";
    if (link.find_first_of(" :") != std::string::npos ||
        link.size() + sizeof door::SocketPath > sizeof sockaddr_un::sun_path) {
        fprintf(stderr, "terminal-sim: too long a name, or one with a blank or colon: %s\n",
                root.c_str());
        return false;
    }
    if (symlink(library.c_str(), link.c_str()) != 0 || access(link.c_str(), R_OK) != 0) {
        perror(library.c_str());
        return false;
    }
    return setenv("LD_PRELOAD", link.c_str(), 1) == 0;
}

bool hasTerminalRun(const std::string& root) {
    return access((root + door::SocketPath).c_str(), F_OK) == 0;
}

int run(const std::vector<std::string>& command) {
    const pid_t started = forkProgram();
    if (started == 0)
        runProgram(command);
    return statusOf(started);
}

int runOnPanel(const std::vector<std::string>& command) {
#ifdef TERMINAL_SIM_PANEL
    PanelEnds ends;
    if (isatty(STDIN_FILENO) && isatty(STDOUT_FILENO) && ends.open()) {
        const pid_t started = forkProgram();
        if (started == 0)
            runProgram(command, ends);
        close(ends.programOutput);
        close(ends.programItems);
        Panel(ends.output, ends.items).run();
        return statusOf(started);
    }
#endif
    return run(command);
}

}  // namespace launcher
