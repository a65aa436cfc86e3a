// Any bytes as the kernel's list of mounts.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "io/Media.h"
#include "sim/Terminal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static sim::Terminal terminal;
    const std::string mounts(reinterpret_cast<const char*>(data), size);
    terminal.files().write("/proc/mounts", mounts);
    const int state = Media::getMediaState(1);
    if (state < Media::Unknown || state > Media::ReadWrite)
        abort();
    // Only a line about the mount point, or a folder above it, can say that it is mounted.
    if (mounts.find("/mnt") == std::string::npos && state != Media::NotMounted)
        abort();
    return 0;
}
