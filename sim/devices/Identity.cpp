#include "sim/devices/Identity.h"

#include <algorithm>

#include "config/IdentityLayout.h"

namespace sim {
namespace {

constexpr size_t FlashSize = 4096;

}  // namespace

Identity::Identity(const RootFolder& rootFolder) : files(rootFolder) {
    setEnvironment({"bootdelay=3", "baudrate=115200", "serial=HT100042", "hwrev=C2", "model=HT",
                    "cmtype=1", "mfdate=1268649600", "bootcmd=nand read 22000000; bootm"});
    setScanners("12");
    setRelease("1.4.2");
}

void Identity::setEnvironment(const std::vector<std::string>& entries) const {
    std::string flash(identity::ChecksumSize, '\xA5');  // nobody verifies it
    for (const std::string& entry : entries)
        flash += entry + '\0';
    flash.resize(std::max(FlashSize, flash.size() + 1), '\0');
    files.write(identity::EnvironmentPath, flash);
}

void Identity::setScanners(const std::string& description) const {
    std::string eeprom(1, static_cast<char>(identity::EepromVersion));
    eeprom += description;
    eeprom.resize(1 + identity::ScannerInfoSize, '\0');
    files.write(identity::EepromPath, eeprom);
}

void Identity::setRelease(const std::string& version) const {
    files.write(identity::ReleasePath, version + "\n");
}

}  // namespace sim
