#include "config/SysInfo.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "foundation/Number.h"
#include "io/FileDescriptor.h"
#include "io/FileStream.h"

namespace {

constexpr size_t LongestEntry = 255;
constexpr size_t CharactersInModel = 8;  // of the scanners' description

}  // namespace

Mutex SysInfo::lock;
int SysInfo::commModuleType = -1;
SysInfo::Text SysInfo::serialNumber;
SysInfo::Text SysInfo::modelType;
SysInfo::Text SysInfo::hardwareRevision;
SysInfo::Text SysInfo::firmwareVersion;
char SysInfo::envBuffer[identity::EnvironmentSize];
char SysInfo::scannerInfo[identity::ScannerInfoSize + 1];
unsigned char SysInfo::scannerInfoVersion;
uint32_t SysInfo::manufTimeStamp;

bool SysInfo::readEnvironment() {
    const io::FileDescriptor flash(io::openAtOnce(identity::EnvironmentPath, O_RDONLY));
    return flash.isOpen() &&
           ::lseek(flash.get(), identity::ChecksumSize, SEEK_SET) == identity::ChecksumSize &&
           ::read(flash.get(), envBuffer, sizeof envBuffer) == sizeof envBuffer;
}

bool SysInfo::findEntry(const char* name, char* out, size_t size) {
    if (!readEnvironment())
        return false;
    std::string_view rest(envBuffer, sizeof envBuffer);
    while (!rest.empty() && rest.front() != '\0') {
        const std::string_view entry = rest.substr(0, rest.find('\0'));
        rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
        const std::string_view looked = entry.substr(0, LongestEntry);
        const size_t equals = looked.find('=');
        if (equals == std::string_view::npos || looked.substr(0, equals) != name)
            continue;
        const std::string_view value = looked.substr(equals + 1);
        std::fill(std::copy_n(value.begin(), std::min(value.size(), size), out), out + size, '\0');
        return true;
    }
    return false;
}

/// Into a text that is always ended.
bool SysInfo::findEntry(const char* name, Text& out) {
    const bool found = findEntry(name, out, sizeof out);
    out[TextSize - 1] = '\0';
    return found;
}

bool SysInfo::getUbootEnv(const char* name, char* out, int size) {
    MutexGuard held(lock);
    return name && out && findEntry(name, out, static_cast<size_t>(std::max(size, 0)));
}

const char* SysInfo::textOf(const char* name, Text& cache) {
    MutexGuard held(lock);
    if (!*cache)
        findEntry(name, cache);
    return cache;
}

const char* SysInfo::getSerialNumber() { return textOf(identity::SerialNumber, serialNumber); }

const char* SysInfo::getHardwareRevision() {
    return textOf(identity::HardwareRevision, hardwareRevision);
}

int SysInfo::commModule() {
    if (commModuleType < 0) {
        Text text;
        const bool isKnown = findEntry(identity::CommModule, text);
        commModuleType = isKnown ? foundation::numberIn(text) : 1;
    }
    return commModuleType;
}

int SysInfo::getCommModule() {
    MutexGuard held(lock);
    return commModule();
}

uint32_t SysInfo::getManufTimeStamp() {
    MutexGuard held(lock);
    Text text;
    if (manufTimeStamp == 0 && findEntry(identity::ManufacturingDate, text))
        manufTimeStamp = static_cast<uint32_t>(
            std::min<unsigned long>(std::strtoul(text, nullptr, 10), UINT32_MAX));
    return manufTimeStamp;
}

const char* SysInfo::scannerInformation() {
    if (scannerInfoVersion != 0)
        return scannerInfo;
    const io::NoCancellation scope;  // half of it must not count as read
    io::FileDescriptor eeprom(io::openAtOnce(identity::EepromPath, O_RDONLY));
    if (!eeprom.isOpen())
        return nullptr;
    if (::read(eeprom.get(), &scannerInfoVersion, 1) != 1 ||
        scannerInfoVersion != identity::EepromVersion) {
        eeprom.release();  // stays open, as the header says
        return nullptr;
    }
    const ssize_t count = ::read(eeprom.get(), scannerInfo, identity::ScannerInfoSize);
    return count == identity::ScannerInfoSize ? scannerInfo : nullptr;
}

const char* SysInfo::getScannerInformation() {
    MutexGuard held(lock);
    return scannerInformation();
}

const char* SysInfo::getModelType() {
    MutexGuard held(lock);
    if (*modelType)
        return modelType;
    Text model{};
    findEntry(identity::Model, model);
    const std::string type = std::to_string(commModule());
    const char* const scanner = scannerInformation();
    const bool isDescribed = scanner && *scanner;
    std::string composed = std::string(model) + "-" + type;
    composed += std::string_view(isDescribed ? scanner : "000").substr(0, CharactersInModel);
    composed.copy(modelType, TextSize - 1);
    return modelType;
}

const char* SysInfo::getFirmwareVersion() {
    MutexGuard held(lock);
    if (*firmwareVersion)
        return firmwareVersion;
    const io::FileStream release = io::openStream(identity::ReleasePath, "r");
    if (!release || !std::fgets(firmwareVersion, sizeof firmwareVersion, release.get()))
        return firmwareVersion;
    for (size_t length = std::strlen(firmwareVersion);
         length > 1 && std::strchr("\r\n", firmwareVersion[length - 1]); --length)
        firmwareVersion[length - 1] = '\0';
    return firmwareVersion;
}
