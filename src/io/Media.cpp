#include "io/Media.h"

#include <sys/mount.h>

#include <cstdio>
#include <cstring>

#include "io/FileStream.h"

namespace {

constexpr unsigned WriteBit = 0x40000000;
constexpr int LastEntry =
    1;  // the end mark counts: it is found like a medium, and then does nothing

}  // namespace

Media::Entry Media::mountTable[] = {
    {"/mnt/mmc", "/dev/mmcblk0p1", "vfat", 1, {0}, {0}},
    {"", "", "", -1, {0}, {0}},
};

Mutex Media::mountMutex;
bool Media::mountEnabled = true;

bool Media::belongsToMountPoint(const char* mountPoint, const char* path) {
    if (!mountPoint || !path)
        return false;
    const size_t length = std::strlen(mountPoint);
    return std::strncmp(mountPoint, path, length) == 0 &&
           (path[length] == '\0' || path[length] == '/');
}

int Media::getMediaState(const Entry& entry) {
    const io::FileStream mounts = io::openStream("/proc/mounts", "r");
    if (!mounts)
        return Unknown;
    char line[196];
    while (std::fgets(line, sizeof line, mounts.get())) {
        char device[65];
        char mountPoint[33];
        char type[33];
        char options[65];
        if (std::sscanf(line, "%64s %32s %32s %64s", device, mountPoint, type, options) != 4 ||
            !belongsToMountPoint(mountPoint, entry.mountPoint))
            continue;
        options[std::strcspn(options, ",")] = '\0';
        if (std::strcmp(options, "ro") == 0)
            return ReadOnly;
        return std::strcmp(options, "rw") == 0 ? ReadWrite : Unknown;
    }
    return NotMounted;
}

int Media::getMediaState(int handle) {
    if (handle < 1 || handle > LastEntry + 1)
        return Unknown;
    return getMediaState(mountTable[handle - 1]);
}

Media::Entry* Media::findEntry(const char* path) {
    for (Entry* entry = mountTable; entry->mode != -1; ++entry) {
        if (belongsToMountPoint(entry->mountPoint, path))
            return entry;
    }
    return nullptr;
}

/// Mounts what is not mounted well enough for the use. The caller holds the lock.
bool Media::prepare(const Entry& entry, bool write) {
    const int state = getMediaState(entry);
    if (state == ReadWrite || (state == ReadOnly && !write))
        return true;
    const unsigned long flags = state == ReadOnly ? MS_REMOUNT : 0;
    return ::mount(entry.device, entry.mountPoint, entry.fsType, flags, "") == 0;
}

int Media::mountMedia(const char* path, bool write) {
    Entry* entry = nullptr;
    {
        MutexGuard held(mountMutex);
        if (!mountEnabled)
            return -1;
        entry = findEntry(path);
        if (!entry)
            return 0;
        if (!prepare(*entry, write))
            return -1;
    }
    ++(write ? entry->writers : entry->readers);
    const auto handle = static_cast<int>(entry - mountTable) + 1;
    return write ? handle | static_cast<int>(WriteBit) : handle;
}

bool Media::unmountMedia(int handle) {
    const unsigned index = (static_cast<unsigned>(handle) & ~WriteBit) - 1;
    if (index > LastEntry)
        return false;
    const bool write = static_cast<unsigned>(handle) & WriteBit;
    MutexGuard held(mountMutex);
    Entry& entry = mountTable[index];
    if (write) {
        if (entry.writers != 0 && --entry.writers != 0)
            return false;
    } else {
        if (entry.readers != 0)
            --entry.readers;
        if (entry.writers != 0)
            return false;
    }
    if (entry.mode == 1)
        return remountReadOnly(entry);
    if (entry.mode == 0)
        return entry.readers != 0 ? ::umount(entry.mountPoint) == 0 : remountReadOnly(entry);
    return false;
}

bool Media::remountReadOnly(const Entry& entry) {
    return ::mount(entry.device, entry.mountPoint, entry.fsType, MS_RDONLY | MS_REMOUNT, "") == 0;
}

bool Media::unmountAll() {
    MutexGuard held(mountMutex);
    for (Entry* entry = mountTable; entry->mode != -1; ++entry) {
        if (getMediaState(*entry) != NotMounted && ::umount(entry->mountPoint) != 0)
            return false;
        entry->readers = 0;
        entry->writers = 0;
    }
    return true;
}

void Media::mountDisable() {
    MutexGuard held(mountMutex);
    mountEnabled = false;
}

void Media::mountEnable() {
    MutexGuard held(mountMutex);
    mountEnabled = true;
}
