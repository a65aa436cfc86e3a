#pragma once

#include <sys/types.h>

#include <string>

namespace sim {

/// The files of the simulated terminal, in a folder of the host. Paths are the terminal's own and
/// absolute.
class RootFolder {
public:
    /// A new folder in a temporary place, removed with this object.
    RootFolder();

    /// An empty folder that somebody else has made and removes.
    explicit RootFolder(const std::string& folder);

    RootFolder(const RootFolder&) = delete;
    RootFolder& operator=(const RootFolder&) = delete;
    ~RootFolder();

    /// Where a path of the terminal lies on the host.
    std::string hostPath(const std::string& path) const { return top + path; }

    /// The other way; a path outside this folder stays as it is.
    std::string pathOf(const std::string& hostPath) const;

    /// Writes a file at once, with the folders above it: a reader sees the old text or the new one.
    void write(const std::string& path, const std::string& text) const;

    bool exists(const std::string& path) const;
    std::string read(const std::string& path) const;  ///< "" when it is not there
    void makeFolder(const std::string& path) const;
    void link(const std::string& path, const std::string& hostTarget) const;  ///< symbolic
    void remove(const std::string& path) const;  ///< with everything below it

private:
    std::string top;  // without links, as the system tells where an open folder is
    pid_t owner = 0;  // the process that removes it; 0: none
};

}  // namespace sim
