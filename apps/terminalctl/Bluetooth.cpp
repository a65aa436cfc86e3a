#include <memory>
#include <string>
#include <vector>

#include "Device.h"
#include "Interruption.h"
#include "Link.h"
#include "bluetooth/BluetoothSPPConnection.h"
#include "bluetooth/LMXBluetoothModule.h"
#include "foundation/TimeLimit.h"
#include "network/BluetoothConnection.h"

namespace ctl {
namespace {

constexpr int LookMs = 250;
constexpr int HighestPort = 7;
constexpr int HighestHeardPort = 6;  // the module's driver ignores calls on 7
constexpr size_t AddressLength = 17;
constexpr size_t PieceSize = 256;

struct Options {
    std::string module = "text";
    std::string lap = "9e8b33";  // the general access code, for which every device listens
    std::string address;
    std::string text;
    std::string pin;
    int port = 1;
    double seconds = 0;
    LinkTimes times;
};

std::string whyNoAddress(const std::string& text) {
    // The library takes any other length for six bytes.
    return text.size() == AddressLength ? "" : "an address is like 00:1A:7D:DA:71:13, not " + text;
}

/// A module that is up, for the length of a scope.
class Radio {
public:
    Radio() = default;
    Radio(const Radio&) = delete;
    Radio& operator=(const Radio&) = delete;
    virtual ~Radio() = default;
    virtual BluetoothModule& module() = 0;

    static std::unique_ptr<Radio> open(const Options& options);
};

class TextRadio : public Radio {
public:
    explicit TextRadio(BT_CONNECTION_SETTINGS settings) : connection(&settings) {
        if (connection.initialize())
            return;
        connection.shutdown();
        throw Failure(Failed, "the text Bluetooth module does not start");
    }
    ~TextRadio() override { connection.shutdown(); }

    BluetoothModule& module() override { return *connection.getModule(); }

private:
    BluetoothConnection connection;
};

class PacketRadio : public Radio {
public:
    PacketRadio() {
        if (!LMXBluetoothModule::initialize())
            throw Failure(Failed, "the packet Bluetooth module does not start");
        driver.reset(static_cast<LMXBluetoothModule*>(BluetoothModule::pModule.load()));
        PowerManager::getPowerManager()->addListener(driver.get());
        driver->setEnabled(true);
    }
    ~PacketRadio() override {
        PowerManager::getPowerManager()->removeListener(driver.get());
        driver->setEnabled(false);
        driver->shutdown();
    }

    BluetoothModule& module() override { return *driver; }

private:
    std::unique_ptr<LMXBluetoothModule> driver;
};

std::unique_ptr<Radio> Radio::open(const Options& options) {
    if (options.module == "packet")
        return std::make_unique<PacketRadio>();
    return std::make_unique<TextRadio>(BT_CONNECTION_SETTINGS{"", options.lap, ""});
}

/// A connection of a module, which disposes of it.
struct Disposal {
    BluetoothModule& module;
    void operator()(BluetoothSPPConnection* link) const { module.deleteSPPConnection(link); }
};
using SerialLink = std::unique_ptr<BluetoothSPPConnection, Disposal>;

/// Waits for something, as long as it may and nobody interrupts. False when that was in vain.
template <class Look> bool await(double seconds, const Look& look) {
    const foundation::TimeLimit limit(millisecondsOf(seconds));
    while (!look()) {
        if (Interruption::isRequested() || (seconds > 0 && limit.leftMs() == 0))
            return false;
    }
    return true;
}

/// Shows what arrives. False when nothing has.
bool showArrival(BluetoothSPPConnection& link, Output& output) {
    if (!link.isInputPending(LookMs))
        return false;
    std::string piece(PieceSize, '\0');
    piece.resize(static_cast<size_t>(link.readData(piece.data(), PieceSize)));
    if (!piece.empty())
        output.show("{text}", {{"event", "data"}, {"text", piece}});
    return !piece.empty();
}

Status showModule(const Options& options, Output& output) {
    const Device device;
    const std::unique_ptr<Radio> radio = Radio::open(options);
    std::string version = radio->module().getVersion();
    version.erase(version.find_last_not_of(" \r\n") + 1);
    output.show("{module} module {address}, {version}", {{"module", options.module},
                                                         {"address", radio->module().getLocalMac()},
                                                         {"version", version}});
    return Done;
}

Status showDevices(const Options& options, Output& output) {
    const Device device;
    const std::unique_ptr<Radio> radio = Radio::open(options);
    const std::vector<BluetoothModule::Device> devices = radio->module().scanDevices();
    for (const BluetoothModule::Device& found : devices)
        output.show("{address} {name}", {{"address", found.address}, {"name", found.name}});
    return devices.empty() ? Nothing : Done;
}

Status send(const Options& options, Output& output) {
    const Device device;
    const std::unique_ptr<Radio> radio = Radio::open(options);
    BluetoothModule& module = radio->module();
    const auto* const address = reinterpret_cast<const unsigned char*>(options.address.c_str());
    const SerialLink link(module.createSPPConnection(address, options.port, options.pin.c_str()),
                          {module});
    if (!link)
        throw Failure(WrongUsage, "no such address, port or PIN");
    if (!link->connect())
        throw Failure(Failed, options.address + " does not take the call");
    if (link->writeData(options.text.data(), static_cast<unsigned>(options.text.size())) <= 0)
        throw Failure(Failed, "the text has not been sent");
    if (options.seconds <= 0)
        return Done;
    // The text module leaves in its line what comes late, until it is asked something.
    const bool isAnswered = await(options.seconds, [&] {
        return showArrival(*link, output) || (module.ping() && showArrival(*link, output));
    });
    return isAnswered ? Done : Nothing;
}

Status listen(const Options& options, Output& output) {
    const Device device;
    PacketRadio radio;  // the other module takes no calls
    BluetoothModule& module = radio.module();
    module.setIncomingPin(options.pin.c_str());
    const SerialLink link(module.createIncomingSPPConnection(options.port), {module});
    if (!link || !link->listen())
        throw Failure(Failed, "the module takes no calls on that port");
    bool hasHeard = false;
    await(options.seconds, [&] {
        hasHeard = showArrival(*link, output) || hasHeard;
        return false;
    });
    return hasHeard ? Done : Nothing;
}

Status keepUp(const Options& options, Output& output) {
    const Device device;
    BT_CONNECTION_SETTINGS settings{"", options.lap, ""};
    BluetoothConnection connection(&settings);
    return runLink(connection, options.times, output);
}

}  // namespace

void declareBluetooth(Command command) {
    const auto options = std::make_shared<Options>();
    const auto operation = [&](const char* name, const char* what,
                               Status (*performed)(const Options& options, Output& output)) {
        Command added = command.add(name, what);
        added.act([options, performed](Output& output) { return performed(*options, output); });
        return added;
    };
    command.take("--module", options->module, "text or packet, for info and send",
                 among({"text", "packet"}));
    command.take("--lap", options->lap, "access code of the text module");
    operation("info", "shows the module's address and version", showModule);
    operation("scan", "shows the devices in reach, with the text module", showDevices);
    declareTimes(operation("up", "keeps the text module up", keepUp), options->times);

    Command sending = operation("send", "sends a text to a device", send);
    sending.need("address", options->address, "00:1A:7D:DA:71:13", unless(whyNoAddress));
    sending.need("text", options->text, "as it is sent");
    sending.take("--pin", options->pin, "that the device asks for");
    sending.take("--port", options->port, "of the device, for the packet module",
                 within(0, HighestPort));
    sending.takeSeconds("--answer", options->seconds, "waits for an answer that long");

    Command listening = operation("listen", "waits for a call, with the packet module", listen);
    listening.need("port", options->port, "on which it is taken, 1 to 6",
                   within(1, HighestHeardPort));
    listening.take("--pin", options->pin, "for devices that ask for one");
    listening.takeSeconds("--for", options->seconds, "that long, 0 for until interrupted");
}

}  // namespace ctl
