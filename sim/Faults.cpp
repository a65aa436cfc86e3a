#include "sim/Faults.h"

namespace sim {

void Faults::fail(const std::string& call, const std::string& path, int error, int skip,
                  int times) {
    const std::lock_guard<std::mutex> held(mutex);
    rules.push_back({call, path, error, skip, times});
}

void Faults::clear() {
    const std::lock_guard<std::mutex> held(mutex);
    rules.clear();
    callCount = 0;
    failCount = 0;
}

int Faults::calls() const {
    const std::lock_guard<std::mutex> held(mutex);
    return callCount;
}

int Faults::failed() const {
    const std::lock_guard<std::mutex> held(mutex);
    return failCount;
}

int Faults::check(const char* call, const std::string& path) {
    const std::lock_guard<std::mutex> held(mutex);
    ++callCount;
    for (Rule& rule : rules) {
        const bool matches = (rule.call.empty() || rule.call == call) &&
                             (rule.path.empty() || rule.path == path) && rule.times > 0;
        if (!matches)
            continue;
        if (rule.skip > 0) {
            --rule.skip;
            continue;
        }
        --rule.times;
        ++failCount;
        return rule.error;
    }
    return 0;
}

}  // namespace sim
