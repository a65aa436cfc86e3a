#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "sim/Journal.h"
#include "sim/RootFolder.h"
#include "sim/ServerThread.h"

namespace sim {

using Words = std::vector<std::string>;

/// The external programs of the terminal: small real ones, run in place of those that the
/// application names, so that processes, signals, pid files and exit codes are real. What they do
/// to the terminal they ask for at a door, where the models answer.
///
/// Programs that go to the background, or lose the shell they were started by, become children of
/// this process where the host can do that, and are reaped here when they end. What still runs when
/// the terminal goes ends with it. Any thread may use it.
class Programs {
public:
    /// What a running program asks, by its first word; the result goes back. Called on the door's
    /// thread, with no lock held.
    using Answer = std::function<Words(const Words& question)>;

    Programs(Journal& journal, const RootFolder& rootFolder);
    Programs(const Programs&) = delete;
    Programs& operator=(const Programs&) = delete;
    ~Programs();

    /// Who answers a program. Complete before the terminal runs.
    void answer(const std::string& program, Answer answer);

    /// The next `times` starts of a program end at once with an exit status, or by a signal.
    void failNext(const std::string& program, int status, int times = 1);
    void crashNext(const std::string& program, int signal, int times = 1);

    /// A program is not installed, or is again.
    void setMissing(const std::string& program, bool missing);

    /// The numbers of a program's running processes, and sending each of them a signal.
    std::vector<pid_t> running(const std::string& program) const;
    void signalRunning(const std::string& program, int signal) const;

    /// Whether a process is one of them.
    bool isRunning(pid_t process) const;

    /// Where the program that stands for a path or name lies on the host; "" for none.
    std::string hostPathOf(const std::string& program) const;

    /// A command of the shell with its program replaced; "" when there is none.
    std::string hostCommandOf(const std::string& command) const;

    /// What the environment of a program holds in addition, "NAME=value".
    const std::string& variable() const { return environment; }

    /// Ends the door and all that is still running. Called once, before the models go.
    void shutDown();

    std::unique_lock<std::mutex> hold() const { return std::unique_lock<std::mutex>(mutex); }

private:
    struct Visitor {
        std::string program;
        pid_t process = 0;
        bool isDaemon = false;    // has gone to the background
        bool isOwnChild = false;  // the application's, which waits for it itself
    };
    struct Failure {
        std::string answer;
        int times = 0;
    };

    void serve();
    void letIn();
    bool hear(int socket);
    Words reply(Visitor& visitor, const Words& question);
    void noteEnd(const Visitor& visitor);
    void reapEnded();

    Journal& journal;
    const RootFolder& files;
    const pid_t owner;
    const std::string folder;
    const std::string environment;
    std::map<std::string, Answer> answers;

    // Of the door's thread.
    bool reapsOrphans = false;
    int listener = -1;
    std::vector<pid_t> ended;

    mutable std::mutex mutex;         // guards what follows
    std::map<int, Visitor> visitors;  // by descriptor
    std::map<std::string, Failure> failures;
    std::map<std::string, bool> missing;

    int wakeUp = -1;
    ServerThread server;
};

}  // namespace sim
