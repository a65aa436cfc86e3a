#include "bluetooth/InquiryAnswer.h"

#include <algorithm>

#include "foundation/Number.h"

namespace bluetooth {
namespace {

constexpr std::string_view NameKey = "NAME ";
constexpr std::string_view DeviceKey = "INQUIRY ";

// The echoed command and the line with the number of devices are shorter.
constexpr size_t ShortestDeviceLine = 18;

/// What stands behind a key: an address, a space, and the rest of the line but for its carriage
/// return.
struct Entry {
    std::string_view address, rest;
};

/// False for a line that ends before the second space. The key ends with the first one.
bool split(std::string_view line, size_t key, Entry& entry) {
    const size_t first = line.find(' ', key + 1);
    const size_t second = line.find(' ', first + 1);
    if (second == std::string_view::npos)
        return false;
    entry.address = line.substr(first + 1, second - first - 1);
    entry.rest = line.substr(second + 1);
    entry.rest.remove_suffix(entry.rest.empty() ? 0 : 1);
    return true;
}

}  // namespace

std::vector<BluetoothModule::Device> devicesIn(std::string_view answer) {
    std::vector<BluetoothModule::Device> devices;
    Entry entry;
    for (size_t end = 0; (end = answer.find('\n')) != std::string_view::npos;
         answer.remove_prefix(end + 1)) {
        const std::string_view line = answer.substr(0, end);
        const size_t name = line.find(NameKey);
        const size_t device = line.find(DeviceKey);
        if (name != std::string_view::npos) {
            if (!split(line, name, entry))
                continue;
            const auto named = std::find_if(devices.begin(), devices.end(), [&](const auto& known) {
                return known.address == entry.address;
            });
            if (named != devices.end())
                named->name = entry.rest;
        } else if (line.size() >= ShortestDeviceLine && device != std::string_view::npos) {
            if (split(line, device, entry))
                devices.push_back({"", std::string(entry.address),
                                   foundation::numberIn(std::string(entry.rest).c_str())});
        }
    }
    return devices;
}

}  // namespace bluetooth
