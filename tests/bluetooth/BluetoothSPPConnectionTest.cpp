#include "bluetooth/BluetoothSPPConnection.h"

#include <array>
#include <numeric>

#include "bluetooth/OwnedLink.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using test::makeLink;
using test::taken;
using Owned = test::OwnedLink;

constexpr char Address[] = "00:1A:7D:DA:71:13";

const unsigned char* bytes(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

/// A driver without a radio: notes what it is asked, and answers what it is told to.
class NotingModule : public BluetoothModule {
public:
    NotingModule() { pModule = this; }

    bool shutdown() override { return true; }
    string getLocalMac() override { return ""; }
    string getVersion() override { return ""; }
    bool setEnabled(bool) override { return true; }
    bool addSDPRecord(int, void*, unsigned) override { return false; }
    bool open() override { return true; }
    bool connectSPP(int id, unsigned char* addr, unsigned char port) override {
        note("connect " + std::to_string(id) + " " + std::to_string(addr[1]) + " " +
             std::to_string(port));
        return onCall(id);
    }
    bool listenSPP(int id) override {
        note("listen " + std::to_string(id));
        return onCall(id);
    }
    bool disconnectSPP(int id) override {
        note("disconnect " + std::to_string(id));
        return true;
    }
    bool sendSPPData(int id, const void*, unsigned len) override {
        note("send " + std::to_string(id) + " " + std::to_string(len));
        return len < 100;
    }

    /// As a driver's thread does it.
    void deliver(int id, string data) {
        const MutexGuard held(registryLock);
        if (connections[id])
            sendIncomingData(connections[id], data.data(), static_cast<unsigned>(data.size()));
    }
    void report(int id, SPP_CONN_STATUS status) {
        const MutexGuard held(registryLock);
        setConnectionState(connections[id], status);
    }
    string take() { return std::exchange(notes, {}); }

    std::function<bool(int)> onCall = [](int) { return true; };

private:
    void note(const string& text) { notes += notes.empty() ? text : ", " + text; }
    string notes;
};

struct BluetoothSPPConnectionTest : test::TerminalTest {
    NotingModule module;
};

TEST_F(BluetoothSPPConnectionTest, SlotsAreGivenLowestFirstAndIncomingOnesByTheirPort) {
    std::vector<Owned> outgoing;
    for (int id = 2; id <= 6; ++id) {
        outgoing.push_back(makeLink(module));
        ASSERT_TRUE(outgoing.back());
        outgoing.back()->disconnect();
        EXPECT_EQ(module.take(), "disconnect " + std::to_string(id));
    }
    EXPECT_EQ(makeLink(module), nullptr);
    EXPECT_EQ(module.createIncomingSPPConnection(3), nullptr) << "an outgoing one has its slot";
    Owned first(module.createIncomingSPPConnection(1));
    for (const int port : {-1, 0, 1, 8})
        EXPECT_EQ(module.createIncomingSPPConnection(port), nullptr) << port;
    outgoing[1].reset();
    EXPECT_EQ(module.take(), "disconnect 3") << "the others never had a slot";
    EXPECT_TRUE(outgoing[0]->registerSPP()) << "a second time, in slot 3";
    outgoing[0].reset();
    EXPECT_EQ(module.take(), "disconnect 3");
    outgoing[0] = makeLink(module);  // was refused: the first slot was not freed
    ASSERT_TRUE(outgoing[0]);
    for (const int id : {7, -1})
        module.deregisterSPPConnection(id);
    EXPECT_TRUE(makeLink(module));
    {
        NotingModule current;
        const Owned bound = makeLink(module);
        EXPECT_TRUE(bound && bound->disconnect());
        EXPECT_EQ(current.take(), "disconnect 2") << "whichever is asked for it";
    }
    EXPECT_EQ(makeLink(module), nullptr) << "there is no current one any more";
    BluetoothModule::pModule = &module;
}

TEST_F(BluetoothSPPConnectionTest, AddressesPortsAndPinsAreTakenByTheirForm) {
    using Six = std::array<unsigned char, 6>;
    constexpr Six Unset = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    const struct {
        const char* given;
        bool isTaken;
        Six address;
    } cases[] = {{Address, true, {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}},
                 {"0A-1b.2C/3d 4E_5f", true, {0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F}},
                 {"00:1A:7D:DA:71:1G", false, {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0xFF}},
                 {"G0:1A:7D:DA:71:13", false, Unset},
                 {"00:1A:7D:DA:71:1", true, {'0', '0', ':', '1', 'A', ':'}},  // not 17: no text
                 {"\xFF\xFF\xFF\xFF\xFF\xFF", true, Unset}};
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.given);
        BluetoothSPPConnection connection(&module, false);
        EXPECT_EQ(connection.setDestAddr(bytes(expected.given)), expected.isTaken);
        Six address = Unset;
        EXPECT_EQ(connection.getDestAddr(address.data()), expected.address != Unset);
        EXPECT_EQ(address, expected.address);
    }
    const auto six = std::make_unique<Six>(Six{0x5C, 0xF3, 0x70, 0x8B, 0x12, 0x34});
    BluetoothSPPConnection outgoing(&module, false);
    EXPECT_TRUE(outgoing.setDestAddr(six->data())) << "and nothing behind them is looked at";

    EXPECT_TRUE(outgoing.setDestPort(7) && outgoing.setLocalPort(7));
    EXPECT_FALSE(outgoing.setDestPort(8) || outgoing.setLocalPort(8) || outgoing.setDestPort(-1));

    char pin[20];
    EXPECT_TRUE(outgoing.setPin("0123456789abcdef") && module.setIncomingPin("0123456789abcdef"));
    for (const unsigned room : {20U, 5U, 0U}) {
        outgoing.getPin(pin, room);
        EXPECT_EQ(pin, string("0123456789abcdef").substr(0, room < 17 ? 4 : 16));
    }

    BluetoothSPPConnection incoming(&module, true);
    EXPECT_FALSE(incoming.setDestAddr(six->data()) || incoming.getDestAddr(six->data()) ||
                 incoming.setDestPort(1) || module.setIncomingPin("0123456789abcdefg"));
    EXPECT_FALSE(makeLink(module, Address, "", 8) || makeLink(module, "G0:1A:7D:DA:71:13") ||
                 makeLink(module, Address, "0123456789abcdefg"));
}

TEST_F(BluetoothSPPConnectionTest, TheFifoKeepsTheOldestBytesInOrder) {
    const Owned link = makeLink(module);
    string sent(1500, '\0');
    std::iota(sent.begin(), sent.end(), '\0');
    EXPECT_EQ(link->incomingData(sent.data(), 1500), 1023);
    EXPECT_EQ(link->incomingData("x", 1), 0);
    EXPECT_EQ(link->numInputPending(0), 1023);
    EXPECT_EQ(taken(*link, 1000), sent.substr(0, 1000));
    EXPECT_EQ(link->incomingData(sent.data() + 1023, 400), 400) << "round the end of the array";
    EXPECT_EQ(taken(*link), sent.substr(1000, 423));
    EXPECT_EQ(link->incomingData("ab", 2), 2);
    EXPECT_EQ(link->flushInput() + link->flushOutput() + link->drainOutput(), 0);
    EXPECT_FALSE(link->isInputPending(0) || link->reOpen());

    // In every position, through two threads without a lock.
    constexpr unsigned Count = 30000;
    std::thread driver([&] {
        for (unsigned next = 0; next < Count;) {
            char piece[40];
            std::iota(piece, piece + sizeof piece, static_cast<char>(next));
            const int stored = link->incomingData(piece, std::min(1 + next % 40, Count - next));
            next += static_cast<unsigned>(stored);
            std::this_thread::yield();
        }
    });
    unsigned seen = 0;
    unsigned wrong = 0;
    for (unsigned size = 1; seen < Count; size = size % 43 + 1) {
        for (const char byte : taken(*link, size))
            wrong += byte == static_cast<char>(seen++) ? 0 : 1;
        std::this_thread::yield();
    }
    driver.join();
    EXPECT_EQ(wrong, 0U);
}

TEST_F(BluetoothSPPConnectionTest, WaitsEndWithDataOrTheirTimeAndNeverSleepLonger) {
    const Owned link = makeLink(module);
    EXPECT_GE(test::elapsedMs([&] { EXPECT_FALSE(link->isInputPending(50)); }), 49);
    auto ended = test::inBackground([&] { return link->numInputPending(60'000); });
    EXPECT_TRUE(test::soon([&] { return module.deliver(2, ""), test::isDone(ended); }))
        << "a delivery of nothing ends a wait";
    EXPECT_EQ(ended.get(), 0);
    for (int round = 0; round < 20; ++round) {
        auto waiting = test::inBackground([&] { return link->numInputPending(2000); });
        module.deliver(2, "abc");  // before, in or after the moment the wait begins
        EXPECT_EQ(waiting.get(), 3);
        EXPECT_EQ(taken(*link), "abc");
    }
}

TEST_F(BluetoothSPPConnectionTest, AnOutgoingLinkCallsAndFollowsWhatTheDriverReports) {
    const Owned link = makeLink(module, Address, "", 5);
    EXPECT_EQ(link->writeData("abc", 3), 0);
    EXPECT_FALSE(link->listen());
    module.onCall = [&](int id) { return module.report(id, SPP_CONN_CONNECTED), true; };
    EXPECT_TRUE(link->connect() && link->connect());
    EXPECT_EQ(link->writeData("abc", 3), 3);
    EXPECT_EQ(link->writeData(string(100, 'x').data(), 100), 0) << "all or nothing";
    EXPECT_TRUE(link->disconnect());
    EXPECT_TRUE(link->isConnected()) << "until the driver says otherwise";
    EXPECT_EQ(module.take(), "connect 2 26 5, send 2 3, send 2 100, disconnect 2");

    module.report(2, SPP_CONN_IDLE);
    module.onCall = [](int) { return false; };
    EXPECT_FALSE(link->connect());
    module.onCall = [](int) { return true; };
    auto calling = test::inBackground([&] { return link->connect(); });
    EXPECT_TRUE(
        test::soon([&] { return module.report(2, SPP_CONN_FAILED), test::isDone(calling); }));
    EXPECT_FALSE(calling.get());
    EXPECT_FALSE(link->connect()) << "an earlier failure counts until something else is reported";

    module.report(2, SPP_CONN_IDLE);
    terminal.clock().setSpeed(200);
    EXPECT_GT(simulated([&] { EXPECT_FALSE(link->connect()); }), 20s) << "without any report";
}

}  // namespace
