#pragma once

#include <string>
#include <utility>

namespace sim {

/// The files of the simulated terminal, in a folder of the host. Paths are the terminal's own and
/// absolute.
class RootFolder {
public:
    /// A new folder in a temporary place, removed with this object.
    RootFolder();

    /// An empty folder that somebody else has made and removes.
    explicit RootFolder(std::string folder) : top(std::move(folder)) {}

    RootFolder(const RootFolder&) = delete;
    RootFolder& operator=(const RootFolder&) = delete;
    ~RootFolder();

    /// Where a path of the terminal lies on the host.
    std::string hostPath(const std::string& path) const { return top + path; }

    /// Writes a file at once, with the folders above it: a reader sees the old text or the new one.
    void write(const std::string& path, const std::string& text) const;

    bool exists(const std::string& path) const;
    std::string read(const std::string& path) const;  ///< "" when it is not there
    void makeFolder(const std::string& path) const;
    void remove(const std::string& path) const;  ///< with everything below it

private:
    std::string top;
    bool isOwn = false;
};

}  // namespace sim
