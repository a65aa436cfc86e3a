#include "bluetooth/BluetoothSPPConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "bluetooth/OwnedLink.h"
#include "support/Eventually.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using test::makeLink;
using test::taken;
using Owned = test::OwnedLink;
using testing::ElementsAre;

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
    std::vector<string> take() { return std::exchange(notes, {}); }

    std::function<bool(int)> onCall = [](int) { return true; };

private:
    void note(const string& text) { notes.push_back(text); }
    std::vector<string> notes;
};

class BluetoothSPPConnectionTest : public test::TerminalTest {
protected:
    NotingModule module;
};

TEST_F(BluetoothSPPConnectionTest, SlotsAreGivenLowestFirstAndIncomingOnesByTheirPort) {
    std::vector<Owned> outgoing;
    for (int id = 2; id <= 6; ++id) {
        outgoing.push_back(makeLink(module));
        ASSERT_TRUE(outgoing.back());
        outgoing.back()->disconnect();
        EXPECT_THAT(module.take(), ElementsAre("disconnect " + std::to_string(id)));
    }
    EXPECT_EQ(makeLink(module), nullptr);
    EXPECT_EQ(module.createIncomingSPPConnection(3), nullptr) << "an outgoing one has its slot";
    Owned first(module.createIncomingSPPConnection(1));
    ASSERT_TRUE(first);
    EXPECT_EQ(module.getLocalPort(first.get()), 1);
    for (const int port : {-1, 0, 1, 8})
        EXPECT_EQ(module.createIncomingSPPConnection(port), nullptr) << port;
    EXPECT_THAT(module.take(), ElementsAre()) << "those were never registered";

    outgoing[1].reset();
    EXPECT_THAT(module.take(), ElementsAre("disconnect 3"));
    for (const int id : {7, -1})
        module.deregisterSPPConnection(id);
    const Owned again = makeLink(module);
    ASSERT_TRUE(again);

    {
        NotingModule current;
        const Owned bound = makeLink(module);
        EXPECT_TRUE(bound && bound->disconnect());
        EXPECT_THAT(current.take(), ElementsAre("disconnect 2")) << "whichever is asked for it";
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
    } cases[] = {
        {Address, true, {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}},
        {"0A-1b.2C/3d 4E_5f", true, {0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F}},
        {"00:1A:7D:DA:71:1G", false, {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0xFF}},
        {"G0:1A:7D:DA:71:13", false, Unset},
        {"00:1A:7D:DA:71:1", true, {'0', '0', ':', '1', 'A', ':'}},  // 16 and 18 are no text
        {"00:1A:7D:DA:71:134", true, {'0', '0', ':', '1', 'A', ':'}},
        {"\xFF\xFF\xFF\xFF\xFF\xFF", true, Unset},
    };
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
    for (const int port : {8, -1})
        EXPECT_FALSE(outgoing.setDestPort(port) || outgoing.setLocalPort(port));
    EXPECT_EQ(outgoing.getDestPort() + outgoing.getLocalPort(), 14);

    char pin[20] = "xxxxxxxxxxxxxxxxxxx";
    EXPECT_TRUE(outgoing.setPin("0123456789abcdef"));
    EXPECT_FALSE(outgoing.setPin("0123456789abcdefg"));
    outgoing.getPin(pin, sizeof pin);
    EXPECT_STREQ(pin, "0123456789abcdef");
    outgoing.getPin(pin, 5);
    EXPECT_STREQ(pin, "0123");
    outgoing.getPin(pin, 0);
    EXPECT_TRUE(module.setIncomingPin("0123456789abcdef") &&
                !module.setIncomingPin("0123456789abcdefg"));

    BluetoothSPPConnection incoming(&module, true);
    EXPECT_FALSE(incoming.setDestAddr(bytes(Address)));
    EXPECT_FALSE(incoming.getDestAddr(six->data()));
    EXPECT_FALSE(incoming.setDestPort(1));
    EXPECT_FALSE(makeLink(module, Address, "", 8) || makeLink(module, "G0:1A:7D:DA:71:13") ||
                 makeLink(module, Address, "0123456789abcdefg"));
}

TEST_F(BluetoothSPPConnectionTest, TheFifoKeepsTheOldestBytesInOrder) {
    const Owned link = makeLink(module);
    ASSERT_TRUE(link);
    string sent(1500, '\0');
    std::iota(sent.begin(), sent.end(), '\0');
    EXPECT_EQ(link->incomingData(sent.data(), 1500), 1023);
    EXPECT_EQ(link->incomingData("x", 1), 0);
    EXPECT_EQ(link->getFifoCnt(), 1023);
    EXPECT_EQ(link->numInputPending(0), 1023);
    EXPECT_EQ(taken(*link, 1000), sent.substr(0, 1000));
    EXPECT_EQ(link->incomingData(sent.data() + 1023, 400), 400) << "round the end of the array";
    EXPECT_EQ(taken(*link), sent.substr(1000, 423));
    EXPECT_EQ(taken(*link), "");
    EXPECT_EQ(link->incomingData("ab", 2), 2);
    EXPECT_EQ(link->flushInput() + link->flushOutput() + link->drainOutput(), 0);
    EXPECT_FALSE(link->isInputPending(0));
    EXPECT_TRUE(link->isPortOpen());
    EXPECT_FALSE(link->reOpen());

    // In every position, through two threads without a lock.
    constexpr unsigned Count = 100000;
    std::thread driver([&] {
        for (unsigned next = 0; next < Count;) {
            char piece[7];
            for (unsigned i = 0; i < sizeof piece; ++i)
                piece[i] = static_cast<char>(next + i);
            const unsigned most = std::min(1 + next % 7, Count - next);
            const int stored = link->incomingData(piece, most);
            next += static_cast<unsigned>(stored);
            if (stored == 0)
                std::this_thread::yield();
        }
    });
    unsigned seen = 0;
    unsigned wrong = 0;
    for (unsigned size = 1; seen < Count; size = size % 11 + 1) {
        const string piece = taken(*link, size);
        for (const char byte : piece)
            wrong += byte == static_cast<char>(seen++) ? 0 : 1;
        if (piece.empty())
            std::this_thread::yield();
    }
    driver.join();
    EXPECT_EQ(wrong, 0U);
}

TEST_F(BluetoothSPPConnectionTest, WaitsEndWithDataOrTheirTimeAndNeverSleepLonger) {
    const Owned link = makeLink(module);
    ASSERT_TRUE(link);
    EXPECT_GE(test::elapsedMs([&] { EXPECT_FALSE(link->isInputPending(50)); }), 49);
    EXPECT_LT(test::shortestMs(1000, [&] { EXPECT_EQ(link->numInputPending(-1), 0); }), 1000);
    for (int round = 0; round < 20; ++round) {
        auto waiting = test::inBackground([&] { return link->numInputPending(100); });
        module.deliver(2, "abc");  // before, in or after the moment the wait begins
        EXPECT_EQ(waiting.get(), 3);
        EXPECT_EQ(taken(*link), "abc");
    }
    auto waiting = test::inBackground([&] { return link->isInputPending(60000); });
    EXPECT_TRUE(test::soon([&] {  // a post without a waiter is lost
        module.deliver(2, "x");
        return test::isDone(waiting);
    }));
    EXPECT_TRUE(waiting.get());
}

TEST_F(BluetoothSPPConnectionTest, AnOutgoingLinkCallsAndFollowsWhatTheDriverReports) {
    const Owned link = makeLink(module, Address, "", 5);
    ASSERT_TRUE(link);
    EXPECT_EQ(link->writeData("abc", 3), 0);
    EXPECT_FALSE(link->listen());
    EXPECT_THAT(module.take(), ElementsAre()) << "nothing reaches the module";

    module.onCall = [&](int id) {
        module.report(id, SPP_CONN_CONNECTED);
        return true;
    };
    EXPECT_TRUE(link->connect());
    EXPECT_TRUE(link->connect()) << "it is";
    EXPECT_EQ(link->writeData("abc", 3), 3);
    EXPECT_EQ(link->writeData(string(100, 'x').data(), 100), 0) << "all or nothing";
    EXPECT_TRUE(link->disconnect());
    EXPECT_TRUE(link->isConnected()) << "until the driver says otherwise";
    EXPECT_THAT(module.take(),
                ElementsAre("connect 2 26 5", "send 2 3", "send 2 100", "disconnect 2"));

    module.report(2, SPP_CONN_IDLE);
    module.onCall = [](int) { return false; };
    EXPECT_FALSE(link->connect());

    module.onCall = [](int) { return true; };
    auto calling = test::inBackground([&] { return link->connect(); });
    EXPECT_TRUE(test::soon([&] {
        module.report(2, SPP_CONN_FAILED);
        return test::isDone(calling);
    }));
    EXPECT_FALSE(calling.get());
    EXPECT_FALSE(link->connect()) << "an earlier failure counts until something else is reported";

    module.report(2, SPP_CONN_IDLE);
    terminal.clock().setSpeed(200);
    const auto begin = terminal.clock().monotonic();
    EXPECT_FALSE(link->connect()) << "without any report";
    EXPECT_GT(terminal.clock().monotonic() - begin, 20s);
    terminal.clock().setSpeed(1);
}

TEST_F(BluetoothSPPConnectionTest, AnIncomingLinkListensAgainWhateverEndsIt) {
    Owned link(module.createIncomingSPPConnection(2));
    ASSERT_TRUE(link);
    EXPECT_FALSE(link->connect());
    module.onCall = [](int) { return false; };
    EXPECT_FALSE(link->listen());
    module.onCall = [](int) { return true; };
    EXPECT_TRUE(link->listen());
    EXPECT_TRUE(link->listen());
    EXPECT_THAT(module.take(), ElementsAre("listen 1", "listen 1")) << "not when it does already";
    module.report(1, SPP_CONN_CONNECTED);
    EXPECT_TRUE(link->isConnected() && link->listen());
    module.report(1, SPP_CONN_FAILED);
    EXPECT_FALSE(link->isConnected());
    EXPECT_TRUE(link->listen());
    EXPECT_THAT(module.take(), ElementsAre());

    Owned early(module.createIncomingSPPConnection(4));
    module.onCall = [&](int id) {
        module.report(id, SPP_CONN_CONNECTED);
        return true;
    };
    EXPECT_TRUE(early->listen());
    EXPECT_TRUE(early->isConnected()) << "a call that came at once is not forgotten";
}

TEST_F(BluetoothSPPConnectionTest, ALinkCanBeDeletedWhileTheDriverDelivers) {
    std::atomic<bool> isEnding{false};
    std::thread driver([&] {
        while (!isEnding) {
            module.deliver(2, "data");
            module.report(2, SPP_CONN_CONNECTED);
        }
    });
    for (int round = 0; round < 300; ++round) {
        const Owned link = makeLink(module);
        ASSERT_TRUE(link);
        link->isInputPending(round % 3);
    }
    isEnding = true;
    driver.join();
}

}  // namespace
