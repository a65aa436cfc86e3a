#include "Bluetooth.h"

#include <memory>
#include <string>

#include "Show.h"
#include "bluetooth/BluetoothSPPConnection.h"
#include "bluetooth/BluetoothSocket.h"
#include "bluetooth/LMXBluetoothModule.h"
#include "power/PowerManager.h"

namespace demo {
namespace {

constexpr int Tries = 5;
constexpr int AnswerMs = 1000;
constexpr int CallMs = 60'000;
constexpr int LookMs = 250;
constexpr int ServicePort = 1;

unsigned char* bytesOf(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }

const unsigned char* bytesOf(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

/// Sends a text until something comes back: what arrives between two writes may wait for the next.
template <class Send, class Receive>
std::string echoOf(const char* text, const Send& send, const Receive& receive) {
    std::string answer(64, '\0');
    for (int i = 0; i < Tries; ++i) {
        std::string words = text;
        if (!send(words))
            break;
        const int length = receive(answer);
        if (length > 0)
            return answer.substr(0, static_cast<size_t>(length));
    }
    return "nothing";
}

void talkThroughSocket(BluetoothConnection& radio, const std::string& device,
                       const std::string& pin) {
    BluetoothSocket socket(&radio);
    if (!socket.connect(bytesOf(device), 0, pin.c_str())) {
        note("no Bluetooth link to %s", device.c_str());
        return;
    }
    const std::string answer = echoOf(
        "ping",
        [&](std::string& words) {
            return socket.writeData(bytesOf(words), static_cast<unsigned>(words.size()));
        },
        [&](std::string& buffer) {
            return socket.readData(bytesOf(buffer), static_cast<unsigned>(buffer.size()));
        });
    note("through the socket %s answers: %s", device.c_str(), answer.c_str());
    show("Bluetooth signal: %d", radio.getModule()->getSignalStrength());
    socket.close();
}

std::string echoThroughPort(SerialPortInterface& port) {
    return echoOf(
        "label 4711",
        [&](std::string& words) {
            return port.writeData(words.data(), static_cast<unsigned>(words.size())) > 0;
        },
        [&](std::string& buffer) {
            return port.isInputPending(AnswerMs)
                       ? port.readData(buffer.data(), static_cast<unsigned>(buffer.size()))
                       : 0;
        });
}

void callThroughPort(BluetoothModule& module, const std::string& device, int port,
                     const std::string& pin) {
    BluetoothSPPConnection* const link =
        module.createSPPConnection(bytesOf(device), port, pin.c_str());
    if (link && link->connect())
        note("through the port %s answers: %s", device.c_str(), echoThroughPort(*link).c_str());
    else
        note("no Bluetooth link to %s", device.c_str());
    module.deleteSPPConnection(link);
}

}  // namespace

void talk(BluetoothConnection& radio, const BT_CONNECTION_SETTINGS& settings) {
    for (const BluetoothModule::Device& device : radio.getModule()->scanDevices())
        show("Bluetooth device %s: %s", device.address.c_str(), device.name.c_str());
    talkThroughSocket(radio, settings.firstText, settings.thirdText);
    callThroughPort(*radio.getModule(), settings.firstText, 0, settings.thirdText);
}

void takeCall(const BT_CONNECTION_SETTINGS& settings) {
    if (!LMXBluetoothModule::initialize()) {
        note("no packet module");
        return;
    }
    const std::unique_ptr<LMXBluetoothModule> module(
        static_cast<LMXBluetoothModule*>(BluetoothModule::pModule.load()));
    PowerManager* const power = PowerManager::getPowerManager();
    power->addListener(module.get());
    show("Bluetooth module %s, version %s", module->getLocalMac().c_str(),
         module->getVersion().c_str());
    module->setEnabled(true);
    module->setIncomingPin(settings.thirdText.c_str());

    BluetoothSPPConnection* const call = module->createIncomingSPPConnection(ServicePort);
    if (call && call->listen()) {
        show("waiting for a call");
        for (int waited = 0; waited < CallMs && !call->isConnected(); waited += LookMs)
            Thread::sleep(LookMs);
        note("called: %s", echoThroughPort(*call).c_str());
        note(power->setPowerMode(POWER_SUSPEND) ? "asleep during a call"
                                                : "no sleep during a call");
    }
    module->deleteSPPConnection(call);
    callThroughPort(*module, settings.firstText, ServicePort, settings.thirdText);

    power->removeListener(module.get());
    module->shutdown();
}

}  // namespace demo
