#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "sim/Programs.h"
#include "sim/RootFolder.h"

namespace sim {

/// The kernel modules of the terminal, in "/proc/modules": what `modprobe`, `insmod` and `rmmod`
/// do. The WLAN driver needs the USB host's module. Any thread may use it.
class KernelModules {
public:
    explicit KernelModules(const RootFolder& rootFolder);

    /// Calls `react` after every change, with no lock held. Set before the terminal runs.
    void onChange(std::function<void()> react) { changed = std::move(react); }

    /// Has the programs load and unload modules.
    void serve(Programs& programs);

    /// By the kernel's spelling of the name: "ohci_hcd".
    bool isLoaded(const std::string& module) const;

    // The exit status of the program that does it.
    int probe(const std::string& module);
    int insert(const std::string& file);
    int remove(const std::string& module);

private:
    bool contains(const std::string& module) const;
    void write() const;
    template <class Change> int change(Change apply);

    const RootFolder& files;
    std::function<void()> changed;

    mutable std::mutex mutex;          // guards what follows
    std::vector<std::string> modules;  // the last one loaded comes first
};

}  // namespace sim
