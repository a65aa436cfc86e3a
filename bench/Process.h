#pragma once

#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
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

/// What a program must not hold more of, however often it goes through the same.
struct Held {
    static constexpr long SpareKb = 512;

    long descriptors, threads, children, residentKb;

    static Held now() {
        const auto entries = [](const char* folder) {
            return std::distance(std::filesystem::directory_iterator(folder), {});
        };
        malloc_trim(0);
        long children = 0;
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            std::ifstream file(task.path() / "children");
            children += std::distance(std::istream_iterator<int>(file), {});
        }
        return {entries("/proc/self/fd"), entries("/proc/self/task"), children,
                bench::residentKb()};
    }

    /// Whether nothing has grown since `before`, but for some spare memory.
    bool isNotMoreThan(const Held& before, long spareKb = SpareKb) const {
        return descriptors <= before.descriptors && threads <= before.threads &&
               children <= before.children && residentKb <= before.residentKb + spareKb;
    }

    /// "descriptors 31 to 31, ..."
    std::string since(const Held& before) const {
        const auto change = [](const char* what, long from, long to) {
            return what + std::to_string(from) + " to " + std::to_string(to);
        };
        return change("descriptors ", before.descriptors, descriptors) +
               change(", threads ", before.threads, threads) +
               change(", children ", before.children, children) +
               change(", resident ", before.residentKb, residentKb) + " kB";
    }
};

}  // namespace bench
