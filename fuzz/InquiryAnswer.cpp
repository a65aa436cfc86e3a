// What a Bluetooth inquiry has found: every device and name is a part of a line of its own, and
// none is found twice.

#include "bluetooth/InquiryAnswer.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

size_t countOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string answer(reinterpret_cast<const char*>(data), size);
    const auto devices = bluetooth::devicesIn(std::string_view(answer));
    require(devices.size() <= countOf(answer, "INQUIRY "));
    size_t named = 0;
    for (const auto& device : devices) {
        require(device.address.find_first_of(" \n") == std::string::npos);
        require(countOf(answer, " " + device.address + " ") > 0);
        require(device.name.find('\n') == std::string::npos);
        require(device.name.empty() || countOf(answer, device.address + " " + device.name) > 0);
        named += device.name.empty() ? 0 : 1;
    }
    require(named <= countOf(answer, "NAME "));
    return 0;
}
