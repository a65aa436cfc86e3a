#include "sim/posix/Router.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "sim/Cancellation.h"
#include "sim/HostFiles.h"
#include "sim/Text.h"
#include "sim/posix/Real.h"

namespace sim {
namespace {

/// Whole folders that are the terminal's. The rest of the file system is the application's own.
constexpr std::string_view TerminalFolders[] = {
    "/dev", "/sys", "/mnt", "/etc/ppp", "/var/run", "/data", "/tmp/wpa_supplicant.ctrl"};
constexpr std::string_view TerminalFiles[] = {
    "/proc/mounts",  "/proc/self/mounts", "/proc/self/mountinfo", "/proc/self/mountstats",
    "/proc/modules", "/release_version",  "/tmp/udhcpc.pid",      "/tmp/wpa_supplicant.pid"};
constexpr std::string_view TerminalPrefixes[] = {"/tmp/wpa_ctrl_"};

/// Parts of /dev that are no devices of the terminal: they work on any system, and harm none.
constexpr std::string_view CommonNodes[] = {
    "/dev/null", "/dev/zero", "/dev/full",  "/dev/random", "/dev/urandom",
    "/dev/tty",  "/dev/fd",   "/dev/stdin", "/dev/stdout", "/dev/stderr",
    "/dev/ptmx", "/dev/pts",  "/dev/shm"};

/// Looking for the way leaves no trace.
class KeptErrno {
public:
    KeptErrno() = default;
    KeptErrno(const KeptErrno&) = delete;
    KeptErrno& operator=(const KeptErrno&) = delete;
    ~KeptErrno() { errno = value; }

private:
    const int value = errno;
};

std::string linkOf(int folder) {
    return folder == AT_FDCWD ? "/proc/self/cwd" : "/proc/self/fd/" + std::to_string(folder);
}

/// Where an open folder or the working directory is, as the terminal sees it; "" when it is none.
std::string folderPath(int folder, const Terminal* terminal) {
    char target[PATH_MAX];
    const ssize_t size = SIM_REAL(readlink)(linkOf(folder).c_str(), target, sizeof target);
    if (size <= 0 || target[0] != '/')
        return "";
    const std::string hostPath(target, static_cast<size_t>(size));
    return terminal ? terminal->pathOf(hostPath) : hostPath;
}

/// Of the names that one place has, the one that it is known by here.
std::string mainName(const std::string& path) {
    if (liesIn(path, "/run"))
        return "/var" + path;
    if (path == "/etc/mtab")
        return "/proc/self/mounts";
    if (!liesIn(path, "/proc") || path == "/proc/mounts")
        return path;
    constexpr std::string_view Root = "/root";  // of any process or thread, as what follows
    const size_t root = path.find(Root);
    if (root != std::string::npos && liesIn(path.substr(root), Root))
        return mainName("/" + path.substr(std::min(root + Root.size() + 1, path.size())));
    const std::string name = path.substr(path.rfind('/') + 1);
    const bool isMounts = name == "mounts" || name == "mountinfo" || name == "mountstats";
    return isMounts ? "/proc/self/" + name : path;
}

/// Without "." and "..", doubled and closing slashes.
std::string cleanPath(const std::string& given) {
    std::string result;
    for (size_t at = 0; at < given.size();) {
        const size_t end = given.find('/', at);
        const std::string part = given.substr(at, end - at);
        at = end == std::string::npos ? given.size() : end + 1;
        if (part == "..")
            result.resize(result.empty() ? 0 : result.rfind('/'));
        else if (!part.empty() && part != ".")
            result += "/" + part;
    }
    return result.empty() ? "/" : result;
}

bool isCommonNode(std::string_view path) {
    return std::any_of(std::begin(CommonNodes), std::end(CommonNodes),
                       [=](std::string_view node) { return liesIn(path, node); });
}

bool isTerminals(std::string_view path) {
    for (const std::string_view file : TerminalFiles) {
        if (path == file)
            return true;
    }
    for (const std::string_view prefix : TerminalPrefixes) {
        if (path.substr(0, prefix.size()) == prefix)
            return true;
    }
    if (isCommonNode(path))
        return false;
    for (const std::string_view folder : TerminalFolders) {
        if (liesIn(path, folder))
            return true;
    }
    return false;
}

/// Where links lead a path of the host, when that is in one of the kernel's folders, or "". Where
/// else the host has laid its own folders does not concern the terminal.
std::string throughLinks(int folder, const char* path) {
    const std::string from = *path == '/' || folder == AT_FDCWD ? "" : linkOf(folder) + "/";
    char reached[PATH_MAX] = "";  // what is missing stands there, too
    const bool isThere = SIM_REAL(realpath)((from + path).c_str(), reached) != nullptr;
    const bool isKernels =
        liesIn(reached, "/dev") || liesIn(reached, "/sys") || (isThere && liesIn(reached, "/proc"));
    return isKernels ? mainName(reached) : "";
}

}  // namespace

bool opensForWriting(int flags) {
    return (flags & O_ACCMODE) != O_RDONLY || (flags & (O_TRUNC | O_CREAT)) != 0;
}

Route route(const char* call, int folder, const char* path, bool forWriting) {
    Route found;
    if (!path || !*path || HostFiles::isActive())
        return found;
    const CancellationOff uncancelled;
    const KeptErrno kept;
    Terminal* const terminal = Terminal::current();
    const std::string from = *path == '/' ? "/" : folderPath(folder, terminal);
    if (from.empty())
        return found;
    found.path = mainName(cleanPath(from + "/" + path));
    if (!isTerminals(found.path)) {
        const bool isPlainNode = isCommonNode(found.path) && !strstr(path, "..");
        const std::string reached = isPlainNode ? "" : throughLinks(folder, path);
        // The host's kernel is not the terminal's to set.
        const bool setsKernel =
            forWriting && (liesIn(found.path, "/proc") || liesIn(reached, "/proc"));
        if (setsKernel || !isTerminals(reached)) {
            found.kind = setsKernel ? Route::Nothing : Route::Host;
            found.place.error = setsKernel ? EACCES : 0;
            return found;
        }
        found.path = reached;
    }
    found.kind = Route::Nothing;
    found.place.error = terminal ? terminal->faults().check(call, found.path) : ENOENT;
    if (found.place.error == 0)
        found.place = terminal->locate(found.path, forWriting);
    if (found.place.error == 0)
        found.kind = found.place.device ? Route::Node : Route::File;
    return found;
}

int faultOf(const char* call, const std::string& path) {
    Terminal* const terminal = Terminal::current();
    return terminal ? terminal->faults().check(call, path) : 0;
}

bool failsByFault(const char* call, const std::string& path) {
    const int error = faultOf(call, path);
    if (error != 0)
        errno = error;
    return error != 0;
}

}  // namespace sim
