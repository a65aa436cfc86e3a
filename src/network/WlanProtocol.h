#pragma once

#include <cstdint>

/// What the kernel and the WLAN driver understand: interface requests, wireless-extension requests
/// and their records, and the names of the adapter. The numbers and layouts are the kernel's own,
/// the same on every host; pointers have the host's size.
namespace wlan {

constexpr char InterfaceName[] = "ra0";
constexpr char ModuleName[] = "rt3070sta";
constexpr char UsbModuleName[] = "ohci-hcd";

enum InterfaceRequest : unsigned {
    GetInterfaceFlags = 0x8913,
    SetInterfaceFlags = 0x8914,
    GetInterfaceAddress = 0x8915,
    GetHardwareAddress = 0x8927
};

enum WirelessRequest : unsigned {
    GetFrequency = 0x8B05,
    GetStatistics = 0x8B0F,
    GetEssid = 0x8B1B
};

constexpr unsigned NameSize = 16;

enum InterfaceFlag : int16_t { InterfaceUp = 1 };

/// Interface request. The kernel copies up to 24 bytes after the name, whatever is asked for.
struct InterfaceRecord {
    char name[NameSize];
    union {
        int16_t flags;
        uint8_t address[16];  // a generic socket address
        uint8_t whole[24];
    };
};
static_assert(sizeof(InterfaceRecord) == 40);

/// A buffer that the driver fills. `length` is its size, and then what the driver says it has used.
struct WirelessBuffer {
    void* data;
    uint16_t length;
    uint16_t flags;
};

/// mantissa x 10^exponent hertz
struct WirelessFrequency {
    int32_t mantissa;
    int16_t exponent;
    uint8_t index;
    uint8_t flags;
};

/// Wireless-extension request.
struct WirelessRecord {
    char name[NameSize];
    union {
        WirelessBuffer buffer;
        WirelessFrequency frequency;
        uint8_t whole[16];
    };
};
static_assert(sizeof(WirelessRecord) == 32);

constexpr uint16_t EssidSize = 64;

constexpr uint16_t ClearUpdatedMarks = 1;  // flag of the statistics request

struct WirelessStatistics {
    uint16_t status;
    uint8_t quality;
    int8_t level;  // dBm
    int8_t noise;  // dBm
    uint8_t updated;
    uint8_t padding[2];
    uint32_t discarded[5];
    uint32_t missedBeacons;
};
static_assert(sizeof(WirelessStatistics) == 32);

}  // namespace wlan
