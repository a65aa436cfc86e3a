#include "sim/Journal.h"

#include "sim/Cancellation.h"
#include "sim/Clock.h"
#include "sim/HostTime.h"

namespace sim {

/// Uncancelled, since a watcher may print, and calls that note something may not unwind.
void Journal::note(const std::string& device, const std::string& text) {
    const CancellationOff uncancelled;
    const std::lock_guard<std::mutex> held(mutex);
    all.push_back({Clock::get().wall(), device, text});
    added.notify_all();
    if (watcher)
        watcher(all.back());
}

std::string Journal::history(const std::string& device) const {
    const std::lock_guard<std::mutex> held(mutex);
    std::string joined;
    for (const Entry& entry : all) {
        if (entry.device == device)
            joined += (joined.empty() ? "" : ", ") + entry.text;
    }
    return joined;
}

std::vector<std::string> Journal::lines() const {
    const std::lock_guard<std::mutex> held(mutex);
    std::vector<std::string> result;
    for (const Entry& entry : all)
        result.push_back(entry.device + ": " + entry.text);
    return result;
}

std::vector<Journal::Entry> Journal::entries() const {
    const std::lock_guard<std::mutex> held(mutex);
    return all;
}

void Journal::clear() {
    const std::lock_guard<std::mutex> held(mutex);
    all.clear();
}

size_t Journal::await(const std::string& text, size_t from, std::chrono::milliseconds limit) const {
    std::unique_lock<std::mutex> held(mutex);
    const HostDeadline deadline(limit);
    for (;;) {
        for (; from < all.size(); ++from) {
            if ((all[from].device + ": " + all[from].text).find(text) != std::string::npos)
                return from + 1;
        }
        if (!deadline.wait(added, held))
            return 0;
    }
}

void Journal::watch(Watcher newWatcher) {
    const std::lock_guard<std::mutex> held(mutex);
    watcher = std::move(newWatcher);
}

}  // namespace sim
