#pragma once

#include <cstddef>

/// Where the terminal keeps who it is, and how: what the library reads and the boot loader, the
/// factory and the firmware have written.
namespace identity {

/// The boot loader's environment: a checksum, then entries "name=value", each ended by a NUL, the
/// list ended by an empty one.
constexpr char EnvironmentPath[] = "/dev/mtd2";
constexpr long ChecksumSize = 4;
constexpr size_t EnvironmentSize = 1024;  // of the entries that are looked at

constexpr char SerialNumber[] = "serial";
constexpr char HardwareRevision[] = "hwrev";
constexpr char CommModule[] = "cmtype";
constexpr char ManufacturingDate[] = "mfdate";
constexpr char Model[] = "model";

/// The EEPROM: a version, then the description of the scanners, not ended if it fills its place.
constexpr char EepromPath[] = "/sys/devices/platform/i2c-gpio/i2c-0/0-0050/eeprom";
constexpr unsigned char EepromVersion = 1;
constexpr size_t ScannerInfoSize = 20;

/// What the description names: a barcode engine in its first character, an RFID engine in its
/// second.
constexpr char BarcodeEngine = '1';
constexpr char RfidEngineNxp = '1';
constexpr char RfidEngineAms = '2';

/// The release of the firmware, on the first line.
constexpr char ReleasePath[] = "/release_version";

}  // namespace identity
