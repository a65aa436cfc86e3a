#pragma once

#include <string>
#include <vector>

#include "sim/RootFolder.h"

namespace sim {

/// Who the terminal is: the boot loader's environment in flash, the identity EEPROM and the release
/// file. They are plain files of the terminal; whatever cannot be set here is written as such.
class Identity {
public:
    explicit Identity(const RootFolder& rootFolder);

    /// Entries such as "serial=123", in this order.
    void setEnvironment(const std::vector<std::string>& entries) const;

    /// The description of the scanners, as the factory writes it: "10", "12".
    void setScanners(const std::string& description) const;

    void setRelease(const std::string& version) const;

private:
    const RootFolder& files;
};

}  // namespace sim
