#include "sim/RootFolder.h"

#include <ftw.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "sim/posix/Real.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

/// In memory if the host has a place for that and nobody wants another: a terminal there comes and
/// goes a hundred times as fast.
std::string makeTemporary() {
    std::string folder;
    for (const fs::path& place : {fs::path("/dev/shm"), fs::temp_directory_path()}) {
        folder = (place / "terminal-XXXXXX").string();
        if ((place != "/dev/shm" || !getenv("TMPDIR")) && SIM_REAL(mkdtemp)(folder.data()))
            return fs::canonical(folder).string();
    }
    throw std::runtime_error("cannot make the terminal's root folder " + folder);
}

}  // namespace

RootFolder::RootFolder() : top(makeTemporary()), owner(getpid()) {}

RootFolder::RootFolder(const std::string& folder) : top(fs::canonical(folder).string()) {}

RootFolder::~RootFolder() {
    if (owner == getpid())
        remove("");
}

std::string RootFolder::pathOf(const std::string& hostPath) const {
    const bool isInside = hostPath.compare(0, top.size(), top) == 0 &&
                          (hostPath.size() == top.size() || hostPath[top.size()] == '/');
    return isInside ? hostPath.substr(top.size()) + (hostPath.size() == top.size() ? "/" : "")
                    : hostPath;
}

void RootFolder::write(const std::string& path, const std::string& text) const {
    const fs::path target = hostPath(path);
    const fs::path draft = target.string() + ".new";
    fs::create_directories(target.parent_path());
    std::ofstream(draft) << text;
    fs::rename(draft, target);
}

bool RootFolder::exists(const std::string& path) const {
    std::error_code ignored;
    return fs::exists(hostPath(path), ignored);
}

std::string RootFolder::read(const std::string& path) const {
    std::ostringstream text;
    text << std::ifstream(hostPath(path)).rdbuf();
    return text.str();
}

void RootFolder::makeFolder(const std::string& path) const {
    fs::create_directories(hostPath(path));
}

/// Not by way of the interposed calls, for which the card may be read-only.
void RootFolder::link(const std::string& path, const std::string& hostTarget) const {
    const fs::path place = hostPath(path);
    std::error_code ignored;
    fs::create_directories(place.parent_path(), ignored);
    fs::remove(place, ignored);
    fs::create_symlink(hostTarget, place, ignored);
}

void RootFolder::remove(const std::string& path) const {
    constexpr int OpenFolders = 16;
    const auto removeOne = [](const char* name, const struct stat*, int, FTW*) {
        return SIM_REAL(remove)(name);
    };
    nftw(hostPath(path).c_str(), removeOne, OpenFolders, FTW_DEPTH | FTW_PHYS);
}

}  // namespace sim
