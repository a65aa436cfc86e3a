#pragma once

#include <cstddef>
#include <cstdint>

#include "config/IdentityLayout.h"
#include "foundation/Mutex.h"

/// What device this is, out of the boot loader's environment, the identity EEPROM and the release
/// file. Each answer is read once and kept; what is missing is looked up again on every call, but
/// for the type of communication module and the composed model, which are kept all the same.
///
/// Any thread may ask. The texts belong to this class and stay; they hold up to 31 characters, and
/// longer ones are cut.
class SysInfo {
public:
    SysInfo() = delete;

    /// Copies the value of an entry of the boot environment to `out`, at most `size` characters of
    /// it: the rest is filled with NULs, but a value of `size` characters or more is not ended by
    /// one. Of an entry, name included, 255 characters count. False when there is no such entry or
    /// the environment cannot be read; `out` is left alone then.
    static bool getUbootEnv(const char* name, char* out, int size);

    static const char* getSerialNumber();      ///< "" when missing
    static const char* getHardwareRevision();  ///< "" when missing

    /// The type of communication module; 1, and that is kept, when nothing is said about it.
    static int getCommModule();

    /// The manufacturing date as a number; 0 when missing.
    static uint32_t getManufTimeStamp();

    /// The description of the scanners, up to 20 characters: the first names the barcode engine,
    /// the second the RFID engine. Null when it cannot be read.
    ///
    /// A failure to read the version, or one that is not known, leaves the EEPROM open, once more
    /// on every call as long as the version cannot be read or is 0. After another such version, and
    /// after a description cut short, later calls give what has been read instead of null: "" or
    /// its start.
    static const char* getScannerInformation();

    /// "model-" with the type of communication module and the first 8 characters of the scanners'
    /// description, "000" instead of none: "X9-1BR", "X9-2000".
    static const char* getModelType();

    /// The first line of the release file; "" when missing.
    static const char* getFirmwareVersion();

private:
    static constexpr size_t TextSize = 32;
    using Text = char[TextSize];

    // Each with the lock held.
    static bool readEnvironment();
    static bool findEntry(const char* name, char* out, size_t size);
    static bool findEntry(const char* name, Text& out);
    static const char* textOf(const char* name, Text& cache);
    static int commModule();
    static const char* scannerInformation();

    static Mutex lock;  // guards what follows

    // Empty or 0: not read yet.
    static int commModuleType;  // -1: not read yet
    static Text serialNumber;
    static Text modelType;
    static Text hardwareRevision;
    static Text firmwareVersion;
    static char envBuffer[identity::EnvironmentSize];
    static char scannerInfo[identity::ScannerInfoSize + 1];
    static unsigned char scannerInfoVersion;
    static uint32_t manufTimeStamp;
};
