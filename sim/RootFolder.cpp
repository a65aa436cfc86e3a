#include "sim/RootFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace sim {

RootFolder::RootFolder()
    : top((fs::temp_directory_path() / "terminal-XXXXXX").string()), isOwn(true) {
    if (!mkdtemp(top.data()))
        throw std::runtime_error("cannot make the terminal's root folder " + top);
}

RootFolder::~RootFolder() {
    std::error_code ignored;
    if (isOwn)
        fs::remove_all(top, ignored);
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

void RootFolder::remove(const std::string& path) const {
    std::error_code ignored;
    fs::remove_all(hostPath(path), ignored);
}

}  // namespace sim
