#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace sim {

/// What has happened to the devices, in order: every request that reached one, every event that one
/// raised. Tests compare it, the console shows it. Any thread may use it.
class Journal {
public:
    struct Entry {
        std::chrono::nanoseconds wall;  ///< simulated wall-clock time
        std::string device;
        std::string text;
    };

    using Watcher = std::function<void(const Entry&)>;

    void note(const std::string& device, const std::string& text);

    /// The texts of one device since the last clear(), joined with ", ".
    std::string history(const std::string& device) const;

    /// All entries as "device: text", in order.
    std::vector<std::string> lines() const;
    std::vector<Entry> entries() const;
    void clear();

    /// Waits for an entry whose "device: text" contains `text`, from the entry numbered `from` on.
    /// The number after the one found; 0 when `limit` of the host's time has passed without it.
    size_t await(const std::string& text, size_t from, std::chrono::milliseconds limit) const;

    /// Calls `watcher` for every entry from now on, on the thread that makes it, which must not use
    /// the journal then.
    void watch(Watcher watcher);

private:
    mutable std::mutex mutex;
    mutable std::condition_variable added;
    std::vector<Entry> all;  // guarded by mutex, as is the watcher
    Watcher watcher;
};

}  // namespace sim
