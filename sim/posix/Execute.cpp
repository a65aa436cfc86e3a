// Starting programs: the terminal's own run in place of those that are named; no program of the
// host is the terminal's.

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>
#include <wordexp.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "sim/Cancellation.h"
#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

using sim::failWith;
using sim::Terminal;

namespace {

/// A program of the terminal with the environment that lets it find its way back.
struct Program {
    std::string hostPath;
    std::vector<char*> environment;
    int error = 0;  // or why it cannot be started
};

Program find(const char* call, const char* path, char* const* environment) {
    const sim::CancellationOff uncancelled;
    Program found;
    Terminal* const terminal = Terminal::current();
    found.error = sim::faultOf(call, path ? path : "");
    if (terminal && path)
        found.hostPath = terminal->programs().hostPathOf(path);
    if (found.error == 0 && (!terminal || found.hostPath.empty()))
        found.error = ENOENT;
    if (found.error != 0)
        return found;
    for (; environment && *environment; ++environment)
        found.environment.push_back(*environment);
    found.environment.push_back(const_cast<char*>(terminal->programs().variable().c_str()));
    found.environment.push_back(nullptr);
    return found;
}

int execute(const char* path, char* const* arguments, char* const* environment) {
    const Program program = find("exec", path, environment);
    if (program.error != 0)
        return failWith(program.error);
    return SIM_REAL(execve)(program.hostPath.c_str(), arguments, program.environment.data());
}

/// The arguments up to the null, of which `first` has been taken.
std::vector<char*> collect(const char* first, va_list& rest) {
    std::vector<char*> arguments{const_cast<char*>(first)};
    while (arguments.back())
        arguments.push_back(va_arg(rest, char*));
    return arguments;
}

int spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
          const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment) {
    const Program program = find("posix_spawn", path, environment);
    if (program.error != 0)
        return program.error;
    return SIM_REAL(posix_spawn)(process, program.hostPath.c_str(), actions, attributes, arguments,
                                 program.environment.data());
}

}  // namespace

extern "C" {

int system(const char* command) {
    constexpr int CommandNotFound = 127 << 8;
    if (sim::failsByFault("system", command ? command : ""))
        return -1;
    if (!command)
        return 0;  // no shell, only the terminal's programs
    Terminal* const terminal = Terminal::current();
    if (!terminal)
        return CommandNotFound;
    const std::string hostCommand = terminal->programs().hostCommandOf(command);
    return hostCommand.empty() ? CommandNotFound : SIM_REAL(system)(hostCommand.c_str());
}

FILE* popen(const char* command, const char*) {
    const int error = sim::faultOf("popen", command ? command : "");
    errno = error != 0 ? error : ENOENT;
    return nullptr;
}
FILE* _IO_popen(const char* command, const char* mode) { return popen(command, mode); }

/// Commands among the words would be the host's.
int wordexp(const char* words, wordexp_t* result, int flags) {
    return SIM_REAL(wordexp)(words, result, flags | WRDE_NOCMD);
}

int execve(const char* path, char* const* arguments, char* const* environment) noexcept {
    return execute(path, arguments, environment);
}
int execv(const char* path, char* const* arguments) noexcept {
    return execute(path, arguments, environ);
}
int execvp(const char* file, char* const* arguments) noexcept {
    return execute(file, arguments, environ);
}
int execvpe(const char* file, char* const* arguments, char* const* environment) noexcept {
    return execute(file, arguments, environment);
}

int execl(const char* path, const char* first, ...) noexcept {
    va_list rest;
    va_start(rest, first);
    const std::vector<char*> arguments = collect(first, rest);
    va_end(rest);
    return execute(path, arguments.data(), environ);
}
int execlp(const char* file, const char* first, ...) noexcept {
    va_list rest;
    va_start(rest, first);
    const std::vector<char*> arguments = collect(first, rest);
    va_end(rest);
    return execute(file, arguments.data(), environ);
}
int execle(const char* path, const char* first, ...) noexcept {
    va_list rest;
    va_start(rest, first);
    const std::vector<char*> arguments = collect(first, rest);
    char* const* const environment = va_arg(rest, char* const*);
    va_end(rest);
    return execute(path, arguments.data(), environment);
}

int execveat(int, const char* path, char* const*, char* const*, int) noexcept {
    const int error = sim::faultOf("exec", path);
    return failWith(error != 0 ? error : ENOENT);
}
int fexecve(int, char* const*, char* const*) noexcept {
    const int error = sim::faultOf("exec");
    return failWith(error != 0 ? error : ENOENT);
}

int posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* arguments,
                char* const* environment) {
    return spawn(process, path, actions, attributes, arguments, environment);
}
int posix_spawnp(pid_t* process, const char* file, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const* arguments,
                 char* const* environment) {
    return spawn(process, file, actions, attributes, arguments, environment);
}

/// What the child is to open. A device does not outlive the process that has it.
int posix_spawn_file_actions_addopen(posix_spawn_file_actions_t* actions, int fd, const char* path,
                                     int flags, mode_t mode) noexcept {
    const sim::Route found = sim::route("open", AT_FDCWD, path, sim::opensForWriting(flags));
    switch (found.kind) {
    case sim::Route::Host:
        return SIM_REAL(posix_spawn_file_actions_addopen)(actions, fd, path, flags, mode);
    case sim::Route::File:
        return SIM_REAL(posix_spawn_file_actions_addopen)(actions, fd, found.place.hostPath.c_str(),
                                                          flags, mode);
    case sim::Route::Node: return ENXIO;
    case sim::Route::Nothing: break;
    }
    return found.place.error;
}

}  // extern "C"
