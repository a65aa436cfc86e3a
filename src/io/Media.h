#pragma once

#include <atomic>

#include "foundation/Mutex.h"

/// The mount bookkeeping of removable media. A card is kept mounted read-only except while somebody
/// writes to it, so that pulling it out or losing power leaves a clean file system.
///
/// Any thread asks before it opens a file (mountMedia) and tells after it has closed it
/// (unmountMedia); the power manager disables mounting and unmounts everything before the terminal
/// suspends or shuts down. No operation blocks longer than the system's mount calls.
class Media {
public:
    /// A medium that the terminal may have.
    struct Entry {
        char mountPoint[32];  ///< the folder
        char device[32];      ///< the block device
        char fsType[16];      ///< the kernel's name of the file system
        int mode;  ///< 1: read-only unless written; 0: unmounted while still read; -1: end of table
        std::atomic<int> readers;  ///< uses for reading
        std::atomic<int> writers;  ///< uses for writing
    };

    /// What getMediaState() finds: any mount option but "ro" and "rw" is Unknown, as is everything
    /// when the mounts cannot be read.
    enum State : int { Unknown = -1, NotMounted = 0, ReadOnly = 1, ReadWrite = 2 };

    /// True when `path` is the mount point or lies below it.
    static bool belongsToMountPoint(const char* mountPoint, const char* path);

    /// The State of an entry, out of the system's list of mounts.
    static int getMediaState(const Entry& entry);

    /// The same by handle. A handle for writing gives -1.
    static int getMediaState(int handle);

    /// Counts a use of the medium that `path` lies on and mounts it as the use needs; one that was
    /// not mounted is mounted writable, for a reader too. The handle for unmountMedia(): 0 when the
    /// path is on no medium of the table, -1 on failure, and always -1 while mounting is disabled.
    static int mountMedia(const char* path, bool write);

    /// Ends a use, of a reader or a writer, and makes the medium read-only unless a writer is left.
    /// True when that was done: false while writers remain, when the remount fails and for an
    /// unknown handle.
    static bool unmountMedia(int handle);

    /// Unmounts every mounted medium and clears its counts. False at the first that is refused.
    static bool unmountAll();

    /// From now on nothing is mounted and no use begins.
    static void mountDisable();

    /// Uses may begin again.
    static void mountEnable();

    static Entry mountTable[];  ///< the memory card, "/mnt/mmc", and the end mark

private:
    static Entry* findEntry(const char* path);
    static bool prepare(const Entry& entry, bool write);
    static bool remountReadOnly(const Entry& entry);

    static Mutex mountMutex;  // guards the table and the flag; a use is counted in outside it
    static bool mountEnabled;
};
