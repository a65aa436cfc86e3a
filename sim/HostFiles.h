#pragma once

namespace sim {

/// While one exists, every path that the thread that made it names is the host's. For files that
/// the simulator has been given, which may lie in a folder that the terminal has as well.
class HostFiles {
public:
    HostFiles() : before(active) { active = true; }
    HostFiles(const HostFiles&) = delete;
    HostFiles& operator=(const HostFiles&) = delete;
    ~HostFiles() { active = before; }

    static bool isActive() { return active; }

private:
    inline static thread_local bool active = false;
    bool before;
};

}  // namespace sim
