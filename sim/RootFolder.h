#pragma once

#include <string>

namespace sim {

/// The files of the simulated terminal: a folder in a temporary place, one per terminal, removed with
/// it. Paths are the terminal's own and absolute.
class RootFolder {
public:
    RootFolder();
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
};

}  // namespace sim
