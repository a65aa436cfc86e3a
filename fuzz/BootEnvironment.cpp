// Any bytes as the boot environment: the first byte of the input is the size of the caller's
// buffer, the rest is the flash.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "config/SysInfo.h"
#include "sim/Terminal.h"

namespace {

constexpr size_t FlashSize = 1028;

/// A value as it would be found by reading the environment letter by letter.
std::string expectedValue(std::string flash, const std::string& name) {
    flash.push_back('\0');  // ends the last entry; the list is ended by the string's own
    for (const char* entry = flash.c_str() + 4; *entry; entry += strlen(entry) + 1) {
        const std::string text = std::string(entry).substr(0, 255);
        if (text.compare(0, name.size() + 1, name + "=") == 0)
            return "found " + text.substr(name.size() + 1);
    }
    return "";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static sim::Terminal terminal;
    if (size == 0)
        return 0;
    const size_t outSize = data[0];
    std::string flash(reinterpret_cast<const char*>(data + 1), size - 1);
    terminal.files().write("/dev/mtd2", flash);
    const bool isWhole = flash.size() >= FlashSize;
    flash.resize(FlashSize);
    for (const char* name : {"serial", "a", ""}) {
        const auto out = std::make_unique<char[]>(outSize);
        const bool found = SysInfo::getUbootEnv(name, out.get(), static_cast<int>(outSize));
        std::string expected = isWhole ? expectedValue(flash, name) : "";
        if (found != !expected.empty())
            abort();
        if (!found)
            continue;
        expected.erase(0, strlen("found "));
        expected.resize(outSize, '\0');
        if (memcmp(out.get(), expected.data(), outSize) != 0)
            abort();
    }
    return 0;
}
