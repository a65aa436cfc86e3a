// What the driver does with the module's packets: whatever they hold, only whole reports about a
// port with a connection change anything, and what they change is what a plain reading of them
// says. Each packet of the input begins with its type, its opcode and its length.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "bluetooth/BluetoothSPPConnection.h"
#include "bluetooth/LMXBluetoothModule.h"

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

/// A driver without a line: its commands fail at once.
class Driver : public LMXBluetoothModule {
public:
    Driver() : LMXBluetoothModule("") { pModule = this; }

    void take(unsigned char type, unsigned char opcode, const std::string& payload) {
        const auto size = static_cast<unsigned>(payload.size());
        const auto bytes = std::make_unique<unsigned char[]>(size);  // and not one more
        std::copy(payload.begin(), payload.end(), bytes.get());
        handlePacket(type, opcode, bytes.get(), size);
        require(std::equal(payload.begin(), payload.end(), bytes.get(),
                           [](char given, unsigned char left) {
                               return static_cast<unsigned char>(given) == left;
                           }));
    }
};

/// One port and what it should stand at.
struct Port {
    std::unique_ptr<BluetoothSPPConnection> connection;
    bool isUp = false;
    std::string data;
};

class Model {
public:
    explicit Model(Driver& driver) {
        const auto* const address = reinterpret_cast<const unsigned char*>("00:1A:7D:DA:71:13");
        for (const int port : {1, 6, 7})
            ports[port].connection.reset(driver.createIncomingSPPConnection(port));
        ports[3].connection.reset(driver.createSPPConnection(address, 1, "0000"));
    }

    void take(unsigned char opcode, const std::string& payload) {
        const size_t size = payload.size();
        if (opcode == 0x0B && size == 9)
            setUp(payload[7], payload[0] == 0);
        if (opcode == 0x0C && size == 7)
            setUp(payload[6], true);
        if (opcode == 0x0E && size == 2)
            setUp(payload[1], false);
        if (opcode == 0x10 && size >= 4 && isKnown(payload[0])) {
            std::string& data = portOn(payload[0]).data;
            data += payload.substr(3, 1023 - data.size());
        }
    }

    void check(Driver& driver) {
        bool anyUp = false;
        for (Port& port : ports) {
            if (!port.connection)
                continue;
            require(port.connection->isConnected() == port.isUp);
            require(port.connection->getFifoCnt() == static_cast<int>(port.data.size()));
            anyUp = anyUp || port.isUp;
        }
        require(driver.powerStateChange(POWER_ON, POWER_SUSPEND) == !anyUp);
        driver.powerStateChange(POWER_SUSPEND, POWER_ON);
    }

    void checkData() {
        for (Port& port : ports) {
            std::string read(1024, '\0');
            if (port.connection)
                read.resize(static_cast<size_t>(port.connection->readData(read.data(), 1024)));
            require(!port.connection || read == port.data);
        }
    }

private:
    Port& portOn(char number) { return ports[static_cast<unsigned char>(number)]; }
    bool isKnown(char number) { return number >= 1 && number <= 6 && portOn(number).connection; }
    void setUp(char number, bool up) {
        if (isKnown(number))
            portOn(number).isUp = up;
    }

    Port ports[8];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Driver driver;
    Model model(driver);
    for (size_t at = 0; at + 3 <= size;) {
        const unsigned char type = data[at];
        const unsigned char opcode = data[at + 1];
        const size_t length = std::min<size_t>(data[at + 2], size - at - 3);
        const std::string payload(reinterpret_cast<const char*>(data + at + 3), length);
        at += 3 + length;
        driver.take(type, opcode, payload);
        if (type == 'i')
            model.take(opcode, payload);
        model.check(driver);
    }
    model.checkData();
    return 0;
}
