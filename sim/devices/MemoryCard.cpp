#include "sim/devices/MemoryCard.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "sim/HostFiles.h"
#include "sim/Terminal.h"
#include "sim/Text.h"
#include "sim/posix/Real.h"

namespace sim {
namespace {

constexpr std::string_view MountPoint = "/mnt/mmc";
constexpr std::string_view CardDevice = "/dev/mmcblk0p1";
constexpr const char* Contents =
    "/.card";  // in the root folder, where no path of the terminal leads

/// The link of one of this process's descriptors.
std::string openedPath(const char* descriptor) {
    char target[PATH_MAX];
    const std::string link = std::string("/proc/self/fd/") + descriptor;
    const ssize_t size = SIM_REAL(readlink)(link.c_str(), target, sizeof target);
    return size > 0 ? std::string(target, static_cast<size_t>(size)) : std::string();
}

}  // namespace

MemoryCard::MemoryCard(Journal& eventJournal, const RootFolder& rootFolder)
    : journal(eventJournal), files(rootFolder) {
    files.makeFolder(Contents);
    files.makeFolder(std::string(MountPoint));
    writeMounts();
}

void MemoryCard::setInserted(bool nowInserted) {
    const std::lock_guard<std::mutex> held(mutex);
    inserted = nowInserted;
    journal.note("card", inserted ? "inserted" : "taken out");
}

bool MemoryCard::isInserted() const {
    const std::lock_guard<std::mutex> held(mutex);
    return inserted;
}

MemoryCard::State MemoryCard::state() const {
    const std::lock_guard<std::mutex> held(mutex);
    return mounted;
}

void MemoryCard::writeFile(const std::string& name, const std::string& text) const {
    files.write(std::string(Contents) + "/" + name, text);
}

std::string MemoryCard::readFile(const std::string& name) const {
    return files.read(std::string(Contents) + "/" + name);
}

std::error_code MemoryCard::copyFrom(const std::string& folder) const {
    const HostFiles hostFiles;
    std::error_code error;
    std::filesystem::copy(folder, files.hostPath(Contents),
                          std::filesystem::copy_options::recursive, error);
    return error;
}

int MemoryCard::mount(const std::string& source, const std::string& target, const std::string& type,
                      unsigned long flags) {
    const std::lock_guard<std::mutex> held(mutex);
    const bool readOnly = (flags & MS_RDONLY) != 0;
    const bool remount = (flags & MS_REMOUNT) != 0;
    if (!remount && type != "vfat")
        return failWith(ENODEV);
    if (!remount && source != CardDevice)
        return failWith(ENOENT);
    if (target != MountPoint)
        return failWith(EINVAL);
    if (!inserted)
        return failWith(ENXIO);
    if (remount == (mounted == State::NotMounted))
        return failWith(remount ? EINVAL : EBUSY);
    if (readOnly && mounted == State::ReadWrite && isInUse(true))
        return failWith(EBUSY);
    mounted = readOnly ? State::ReadOnly : State::ReadWrite;
    writeMounts();
    journal.note("card", std::string(remount ? "remount " : "mount ") + (readOnly ? "ro" : "rw"));
    return 0;
}

int MemoryCard::unmount(const std::string& target) {
    const std::lock_guard<std::mutex> held(mutex);
    if (target != MountPoint || mounted == State::NotMounted)
        return failWith(EINVAL);
    if (isInUse(false))
        return failWith(EBUSY);
    mounted = State::NotMounted;
    writeMounts();
    journal.note("card", "unmount");
    return 0;
}

bool MemoryCard::isInUse(bool onlyForWriting) const {
    const std::string contents = files.hostPath(Contents);
    DIR* const descriptors = SIM_REAL(opendir)("/proc/self/fd");
    if (!descriptors)
        return false;
    bool found = false;
    while (const dirent* entry = ::readdir(descriptors)) {
        if (!liesIn(openedPath(entry->d_name), contents))
            continue;
        const int flags = SIM_REAL(fcntl)(atoi(entry->d_name), F_GETFL);
        found = found || !onlyForWriting || (flags & O_ACCMODE) != O_RDONLY;
    }
    ::closedir(descriptors);
    return found;
}

bool MemoryCard::locate(const std::string& path, bool forWriting, Place& place) const {
    if (!liesIn(path, MountPoint))
        return false;
    const std::lock_guard<std::mutex> held(mutex);
    if (mounted == State::NotMounted) {
        place.hostPath = files.hostPath(path);
        return true;
    }
    place.hostPath = files.hostPath(Contents + path.substr(MountPoint.size()));
    if (!inserted)
        place.error = EIO;
    else if (forWriting && mounted == State::ReadOnly)
        place.error = EROFS;
    return true;
}

std::string MemoryCard::pathOf(const std::string& pathInRoot) {
    const std::string_view contents = Contents;
    return liesIn(pathInRoot, contents)
               ? std::string(MountPoint) + pathInRoot.substr(contents.size())
               : pathInRoot;
}

void MemoryCard::writeMounts() const {
    std::string text = "rootfs / rootfs rw 0 0\n"
                       "/dev/root / jffs2 rw,noatime 0 0\n"
                       "proc /proc proc rw,nodev,noexec,nosuid,relatime 0 0\n"
                       "sysfs /sys sysfs rw,relatime 0 0\n";
    if (mounted != State::NotMounted) {
        text += std::string(CardDevice) + " " + std::string(MountPoint) + " vfat " +
                (mounted == State::ReadOnly ? "ro" : "rw") +
                ",relatime,fmask=0022,dmask=0022,codepage=cp437,iocharset=iso8859-1 0 0\n";
    }
    files.write("/proc/mounts", text);
    files.write("/proc/self/mounts", text);
}

}  // namespace sim
