#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "sim/Journal.h"
#include "sim/SerialLine.h"
#include "sim/devices/BluetoothAir.h"
#include "sim/devices/PacketReply.h"

namespace sim {

/// The Bluetooth module with the binary command interface on its serial line. It is always powered;
/// its chip is enabled by itself, and loses its links while disabled.
///
/// It has seven ports. An open one without a link takes a call from the air. A device with a PIN
/// makes it ask the host for that, in a call of either direction. Data arrives in packets as long
/// as the host is known to take.
///
/// Any thread may use it.
class PacketBluetoothModule final : public LinePeer, private BluetoothAir::Module {
public:
    static constexpr int Ports = 7;          // numbered from 1
    static constexpr size_t MostData = 330;  // in one packet to the host

    PacketBluetoothModule(Journal& eventJournal, SerialLine& line, BluetoothAir& surroundings);

    SerialLine& line() { return serialLine; }

    /// Who it says it is: an address such as "66:55:44:33:22:11", and the software's version.
    void setIdentity(const std::string& address, const std::string& newVersion);

    /// The next `times` requests of that opcode are confirmed like this. The first rule that
    /// matches and is not used up counts.
    void onRequest(uint8_t opcode, PacketReply reply, int times = 1);
    void clearRules();

    void setSilent(bool silent);  ///< deaf and dumb until told otherwise
    /// Any packet, or any bytes, to the host.
    void sendPacket(char type, uint8_t opcode, std::string_view payload);
    void transmit(std::string_view bytes) { serialLine.send(bytes); }

    bool isEnabled() const;
    uint32_t openPorts() const;  ///< a bit for each, as the host has set them
    std::string name() const;
    /// The service records of a port that are offered to devices.
    std::vector<std::string> services(int port) const;

    void received(std::string_view bytes) override;

private:
    struct Link {
        enum State { None, Calling, PinForCall, PinForCaller, Up, Ending };
        State state = None;
        int number = 0;  // the air's, of one that is up or is offered by a caller
        std::string address;
        uint8_t remotePort = 0;
        unsigned attempt = 0;  // tells what was to be done later for an earlier one
    };
    struct Service {
        int port;
        std::string record;
        bool isOffered = false;
    };
    struct Rule {
        uint8_t opcode = 0;
        PacketReply reply;
        int timesLeft = 0;
    };
    struct Request;
    static const Request Requests[];

    using Lock = std::lock_guard<std::recursive_mutex>;

    // Packets
    size_t takePacket(std::string_view bytes);
    void execute(uint8_t opcode, const std::string& payload);
    PacketReply replyTo(uint8_t opcode);
    void confirm(uint8_t opcode, std::string payload, const PacketReply& reply);

    // Requests: the payload of the confirmation, "" if there is none.
    std::string setName(const std::string& payload);
    std::string readAddress(const std::string& payload);
    std::string enableChip(const std::string& payload);
    std::string callDevice(const std::string& payload);
    std::string endLink(const std::string& payload);
    std::string sendData(const std::string& payload);
    std::string setOpenPorts(const std::string& payload);
    std::string readVersion(const std::string& payload);
    std::string offerService(const std::string& payload);
    std::string addService(const std::string& payload);
    std::string takePin(const std::string& payload);
    std::string setUp(const std::string& payload);

    // Links
    bool linkOffered(int number, const BluetoothAir::Remote& caller, int port) override;
    void linkData(int number, std::string_view bytes) override;
    void linkLost(int number) override;
    void later(Nanoseconds delay, int port, void (PacketBluetoothModule::*action)(int port));
    void reachDevice(int port);
    void connectWith(int port, const std::string& pin);
    void giveUp(int port);
    void forget(int port);
    void called(int port);
    void tellDown(int port);
    void finishCall(int port, uint8_t status);
    void askPin(int port, Link::State state);
    int portOf(int number);
    Link& linkOn(int port) { return links.at(static_cast<size_t>(port)); }

    Journal& journal;
    SerialLine& serialLine;
    BluetoothAir& air;

    mutable std::recursive_mutex mutex;  // guards everything below
    std::string pending;                 // the beginning of a packet
    std::vector<Rule> rules;
    bool isSilent = false;
    bool enabled = true;
    uint32_t ports = 0;
    std::string localAddress = "00:1B:DC:0F:21:07";
    std::string version = "6.3.1";
    std::string localName;
    std::vector<Service> serviceRecords;  // the handle is the index
    std::array<Link, Ports + 1> links;    // by port
};

}  // namespace sim
