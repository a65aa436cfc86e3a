#pragma once

#include <memory>
#include <string>

#include "bluetooth/BluetoothSPPConnection.h"

namespace test {

struct LinkDeleter {
    void operator()(BluetoothSPPConnection* link) const {
        BluetoothModule::pModule.load()->deleteSPPConnection(link);
    }
};

/// A connection that goes before the current module does.
using OwnedLink = std::unique_ptr<BluetoothSPPConnection, LinkDeleter>;

inline OwnedLink makeLink(BluetoothModule& module, const char* address = "00:1A:7D:DA:71:13",
                          const char* pin = "", int port = 0) {
    return OwnedLink(
        module.createSPPConnection(reinterpret_cast<const unsigned char*>(address), port, pin));
}

/// Everything that has come over a link, up to `most` bytes.
inline std::string taken(BluetoothSPPConnection& link, unsigned most = 2000) {
    std::string data(most, '\0');
    data.resize(static_cast<size_t>(link.readData(data.data(), most)));
    return data;
}

}  // namespace test
