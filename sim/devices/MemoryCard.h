#pragma once

#include <mutex>
#include <string>
#include <system_error>

#include "sim/Journal.h"
#include "sim/RootFolder.h"

namespace sim {

struct Place;

/// The memory card and the kernel's side of mounting it: what mount and umount do to it, what is
/// below its mount point, and the line of it in "/proc/mounts". As on any system it cannot be
/// unmounted while a file on it is open, nor made read-only while one is open for writing.
class MemoryCard {
public:
    enum class State { NotMounted, ReadOnly, ReadWrite };

    MemoryCard(Journal& journal, const RootFolder& rootFolder);

    /// Without a card every mount fails. Taking it out while mounted leaves the mount there, with
    /// nothing below it that can be opened.
    void setInserted(bool nowInserted);
    bool isInserted() const;

    State state() const;

    /// Writes a file of the card from outside, as a card reader would.
    void writeFile(const std::string& name, const std::string& text) const;
    std::string readFile(const std::string& name) const;

    /// The same with all the files of a folder of the host.
    std::error_code copyFrom(const std::string& folder) const;

    int mount(const std::string& source, const std::string& target, const std::string& type,
              unsigned long flags);
    int unmount(const std::string& target);

    /// Whether `path` is at or below the mount point; if so `place` tells where it leads.
    bool locate(const std::string& path, bool forWriting, Place& place) const;

    /// The other way: what is the card's in the root folder is below the mount point.
    static std::string pathOf(const std::string& pathInRoot);

    /// Nothing changes while somebody holds this.
    std::unique_lock<std::mutex> hold() const { return std::unique_lock<std::mutex>(mutex); }

private:
    bool isInUse(bool onlyForWriting) const;
    void writeMounts() const;

    Journal& journal;
    const RootFolder& files;

    mutable std::mutex mutex;  // guards what follows
    bool inserted = true;
    State mounted = State::NotMounted;
};

}  // namespace sim
