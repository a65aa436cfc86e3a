#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace sim {

/// Makes system calls of the application fail. It sees every call that concerns the terminal: those
/// on its paths, on descriptors of its devices, and those that would change the system (mount,
/// pthread_create, ...); and counts them, so that a test can fail the first, the second, ... of a
/// procedure. Any thread may use it.
class Faults {
public:
    /// Fails calls of the given name ("" any) that concern the given path ("" any): lets `skip`
    /// of them pass, then `times` fail with `error`. Rules are tried in the order they were added.
    void fail(const std::string& call, const std::string& path, int error, int skip = 0,
              int times = 1);

    /// The `number`th call from now, counted from 1, fails with `error`.
    void failNth(int number, int error) { fail("", "", error, number - 1); }

    /// Takes back all rules and counts from 0 again.
    void clear();

    int calls() const;   ///< since the last clear()
    int failed() const;  ///< how many of them were made to fail

    /// Nothing changes while somebody holds this.
    std::unique_lock<std::mutex> hold() const { return std::unique_lock<std::mutex>(mutex); }

    /// Called for each call: 0, or the error it has to fail with.
    int check(const char* call, const std::string& path);

private:
    struct Rule {
        std::string call, path;
        int error, skip, times;
    };

    mutable std::mutex mutex;
    std::vector<Rule> rules;  // guarded by mutex, as are the counts
    int callCount = 0;
    int failCount = 0;
};

}  // namespace sim
