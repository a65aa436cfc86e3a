// Any bytes as the kernel's list of modules.

#include "network/ModuleList.h"

#include <cstdint>
#include <cstdlib>
#include <string>

#include "io/FileStream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    std::string list(reinterpret_cast<const char*>(data), size);
    const io::FileStream file(fmemopen(list.data(), list.size(), "r"));
    const bool isListed = wlan::isModuleListed(file.get(), "rt3070sta");
    if (isListed != (("\n" + list).find("\nrt3070sta ") != std::string::npos))
        abort();
    return 0;
}
