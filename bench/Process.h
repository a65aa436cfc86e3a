#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace bench {

/// The number behind `label` in a file of /proc.
inline long valueIn(const std::string& path, const std::string& label) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, label.size(), label) == 0)
            return atol(line.c_str() + label.size());
    }
    return 0;
}

/// How often the threads of this process have woken up, but for the one that asks.
inline long wakeUps() {
    long sum = 0;
    DIR* const tasks = opendir("/proc/self/task");
    while (const dirent* task = readdir(tasks)) {
        const std::string name = task->d_name;
        if (name != "." && name != ".." && name != std::to_string(gettid()))
            sum += valueIn("/proc/self/task/" + name + "/status", "voluntary_ctxt_switches:");
    }
    closedir(tasks);
    return sum;
}

inline long residentKb() { return valueIn("/proc/self/status", "VmRSS:"); }
inline long threads() { return valueIn("/proc/self/status", "Threads:"); }

inline long descriptors() {
    long count = 0;
    DIR* const files = opendir("/proc/self/fd");
    while (readdir(files))
        ++count;
    closedir(files);
    return count - 3;  // ".", ".." and the folder's own
}

}  // namespace bench
