#include "bluetooth/LMXBluetoothModule.h"

#include <future>
#include <stdexcept>

#include "bluetooth/OwnedLink.h"
#include "sim/console/Console.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using sim::PacketReply;
using std::string;
using test::soon;

constexpr char Phone[] = "00:1A:7D:DA:71:13";
constexpr double Fast = 50;
constexpr double Slow = 0.25;  // a confirmation has 400 ms of the host's time

/// The driver with what only those that derive from it may reach.
struct Driver : LMXBluetoothModule {
    Driver() : LMXBluetoothModule("/dev/ttyS0") {}
    using BluetoothModule::registryLock;
};

struct LMXBluetoothModuleTest : test::TerminalTest {
    LMXBluetoothModuleTest() {
        terminal.identity().setEnvironment({"serial=4711"});
        terminal.air().present(Phone, "phone");
    }
    ~LMXBluetoothModuleTest() override {
        hurry();
        delete BluetoothModule::pModule;
    }

    LMXBluetoothModule& driver() {
        return *dynamic_cast<LMXBluetoothModule*>(BluetoothModule::pModule.load());
    }

    /// With a driver that is up, on a clock that leaves confirmations the time they need.
    void start() {
        terminal.clock().setSpeed(Slow);
        if (!LMXBluetoothModule::initialize())
            throw std::runtime_error("no module");
        takeLines();
    }

    /// Time passes fast, also for a thread that waits for a packet already.
    void hurry() {
        terminal.clock().setSpeed(Fast);
        module.setSilent(false);
        module.sendPacket('?', 0, "");
    }

    /// When this returns, the thread has handled whatever was sent before.
    void settle() {
        EXPECT_TRUE(driver().sendChipEnable(true));
        terminal.journal().clear();
    }

    using Connection = std::unique_ptr<BluetoothSPPConnection>;
    Connection call() { return Connection(test::makeLink(driver(), Phone, "", 3).release()); }

    /// All that comes over a link until it is `size` bytes.
    static string receive(BluetoothSPPConnection& link, size_t size) {
        string all;
        soon([&] { return (all += test::taken(link, 200)).size() >= size; });
        return all;
    }
    bool mayBeSuspended() {
        const bool may = driver().powerStateChange(POWER_ON, POWER_SUSPEND);
        return driver().powerStateChange(POWER_SUSPEND, POWER_ON) && may;
    }

    sim::PacketBluetoothModule& module = terminal.packetModule();
};

TEST_F(LMXBluetoothModuleTest, AModuleThatCannotBeSetUpIsNone) {
    terminal.clock().setSpeed(Slow);
    module.onRequest(0x26, PacketReply::refusal(), 5);
    EXPECT_FALSE(LMXBluetoothModule::initialize());
    EXPECT_EQ(take("packet"), "26, 26, 26, 26, 26");
    module.line().distortSent([](string& bytes) { bytes[6] = '\xC8'; });
    {
        Driver alone;
        EXPECT_TRUE(alone.initComm());
        EXPECT_EQ(alone.getVersion(), "6.3.1") << "no more than the packet holds";
        EXPECT_EQ(module.line().settings(), "115200 8N1 rtscts");
        EXPECT_TRUE(alone.shutdown());
        EXPECT_FALSE(alone.closePort() || alone.sendChipEnable(true)) << "there is no line";
    }
    module.line().distortSent(nullptr);
    const test::Holdings before;
    int failures = 0;
    for (int failing = 1; failing < 40; ++failing) {
        terminal.clock().setSpeed(Slow);
        terminal.faults().clear();
        terminal.faults().failNth(failing, EIO);
        failures += LMXBluetoothModule::initialize() ? 0 : 1;
        hurry();
        delete BluetoothModule::pModule;
        EXPECT_EQ(BluetoothModule::pModule, nullptr);
        EXPECT_TRUE(before.areBack()) << "call " << failing;
    }
    EXPECT_GE(failures, 1 + 4 + 1) << "the open, a write of each kind and the thread";
    terminal.clock().setSpeed(Slow);
    terminal.faults().clear();
    EXPECT_TRUE(LMXBluetoothModule::initialize()) << "they were what has failed";
}

TEST_F(LMXBluetoothModuleTest, SetUpAddressAndServicesAreAskedForInTheModulesOwnNumbers) {
    terminal.clock().setSpeed(Slow);
    ASSERT_TRUE(LMXBluetoothModule::initialize());
    EXPECT_EQ(take("packet"), "26, 17 00, 4E 00, 2A, 4A 00, 28 14 01 08, "
                              "04 09 4B 56 32 20 34 37 31 31 00, 22 00 00 00 00");
    // Two first callers at once: the second one's address was appended to the first one's.
    terminal.clock().setSpeed(Slow / 10);
    module.onRequest(0x05, PacketReply::normal().after(20ms), 2);
    auto second = std::async([this] { return driver().getLocalMac(); });
    const string address = driver().getLocalMac();
    EXPECT_EQ(address, "00:1B:DC:0F:21:07");
    EXPECT_EQ(second.get(), address);
    EXPECT_EQ(driver().getLocalMac(), address);
    terminal.clock().setSpeed(Slow);
    char record[] = {0x35};
    EXPECT_TRUE(driver().addSDPRecord(2, record, sizeof record) && driver().listenSPP(2));
    EXPECT_EQ(take("packet"), "05, 05, 31 02 22 44 01 00 35, 29 01 00, 22 04 00 00 00");
}

TEST_F(LMXBluetoothModuleTest, ARequestThatIsRefusedOrHasNoSlotOrLineFails) {
    start();
    unsigned char address[6] = {};
    const auto works = [&](int id) {
        return driver().addSDPRecord(id, address, 1) || driver().sendSPPData(id, "x", 1) ||
               driver().connectSPP(id, address, 3) || driver().disconnectSPP(id);
    };
    for (const auto opcode : "\x05\x31\x0F"s)
        module.onRequest(static_cast<uint8_t>(opcode), PacketReply::refusal());
    EXPECT_FALSE(driver().addSDPRecord(2, address, 1) || driver().sendSPPData(2, "x", 1));
    EXPECT_TRUE(driver().getLocalMac().empty() && !works(-1) && !works(7) && !driver().openPort());
    EXPECT_TRUE(driver().sendSPPData(7, nullptr, 0) && driver().listenSPP(7));
    EXPECT_TRUE(driver().closePort() && driver().listenSPP(2));
    EXPECT_TRUE(driver().getLocalMac().empty() && !works(2));
    EXPECT_EQ(take("packet"), "31 02 22 44 01 00 00, 0F 03, 1 bytes, 05") << "nothing else is sent";
}

TEST_F(LMXBluetoothModuleTest, ACallCarriesDataAndOnlyWithoutOneTheChipSleepsWithTheTerminal) {
    start();
    Connection link = call();
    EXPECT_TRUE(link->connect());
    EXPECT_EQ(take("packet"), "22 04 00 00 00, 0A 03 00 1A 7D DA 71 13 03");
    EXPECT_FALSE(driver().powerStateChange(POWER_ON, POWER_ALARM_WAKE));
    EXPECT_FALSE(driver().powerStateChange(POWER_ON, POWER_SUSPEND));
    EXPECT_TRUE(driver().powerStateChange(POWER_ON, POWER_SHUTDOWN));

    const string text(300, 't');
    EXPECT_EQ(link->writeData(text.data(), 300), 300);
    EXPECT_EQ(take("packet"), "0F 03, 128 bytes, 0F 03, 128 bytes, 0F 03, 44 bytes");
    EXPECT_EQ(receive(*link, 300), text);
    module.onRequest(0x0F, PacketReply::refusal());
    EXPECT_EQ(link->writeData(text.data(), 300), 0);
    EXPECT_EQ(take("packet"), "0F 03, 128 bytes") << "none after the refused one";
    link.reset();
    EXPECT_EQ(take("packet"), "22 00 00 00 00, 29 00 00, 0D 03");
    EXPECT_TRUE(soon([&] { return mayBeSuspended(); })) << "though the link's end is told too late";
    takeLines();

    EXPECT_TRUE(driver().powerStateChange(POWER_ON, POWER_SUSPEND));
    EXPECT_TRUE(driver().powerStateChange(POWER_SUSPEND, POWER_ALARM_WAKE));
    EXPECT_FALSE(module.isEnabled());
    EXPECT_TRUE(driver().powerStateChange(POWER_ALARM_WAKE, POWER_ON));
    EXPECT_TRUE(driver().powerStateChange(POWER_ON, POWER_DARK) && driver().setEnabled(false));
    EXPECT_TRUE(mayBeSuspended());
    EXPECT_EQ(take("packet"), "06 00 00, disabled, 06 01 01, enabled, 06 00 00, disabled, "
                              "06 00 00, disabled, 06 00 00, disabled");
}

TEST_F(LMXBluetoothModuleTest, OnlyAConfirmationInTimeOfTheRightKindCounts) {
    start();
    const struct {
        const char* what = nullptr;
        PacketReply reply;
        bool result = false;
    } Cases[] = {{"twice", PacketReply::normal().twice(), true},
                 {"refused", PacketReply::refusal(), false},
                 {"empty", PacketReply::normal().sized(0), false},
                 {"long", PacketReply::normal().sized(333), false},
                 {"silent", PacketReply::unconfirmed(), false},
                 {"garbled", PacketReply::normal().garbled(), false},
                 {"for another", PacketReply::normal().confirming(0x0F), false},
                 {"slow", PacketReply::normal().after(20ms), true}};
    for (const auto& [what, reply, result] : Cases) {
        module.onRequest(0x06, reply);
        EXPECT_EQ(driver().setEnabled(true), result) << what;
        EXPECT_TRUE(driver().addSDPRecord(0, nullptr, 0)) << "after " << what;
    }
    terminal.clock().setSpeed(Slow / 4);  // the next request has 800 ms to come before it
    module.onRequest(0x06, PacketReply::normal().after(150ms));
    module.onRequest(0x06, PacketReply::unconfirmed());
    EXPECT_FALSE(driver().setEnabled(true)) << "late";
    EXPECT_TRUE(driver().setEnabled(true)) << "the late one cannot be told from its own";
    terminal.clock().setSpeed(Slow);
    module.onRequest(0x06, PacketReply::normal().cut(7));
    EXPECT_FALSE(driver().setEnabled(true));
    EXPECT_FALSE(driver().setEnabled(true)) << "eaten by the packet that has not ended";
    settle();
    sim::Console console(terminal);
    EXPECT_EQ(console.execute("packet refuse 6") + console.execute("mute packet off"), "");
    EXPECT_FALSE(driver().setEnabled(true));
}

TEST_F(LMXBluetoothModuleTest, ACallEndsInTimeWhateverTheModuleAndTheDeviceDo) {
    start();
    hurry();
    Connection link = call();
    module.onRequest(0x0A, PacketReply::unconfirmed());
    terminal.air().takeAway(Phone);
    EXPECT_FALSE(link->connect());
    EXPECT_TRUE(await("22 00 00 00 00"));
    EXPECT_EQ(take("packet"), "22 04 00 00 00, 0A 03 00 1A 7D DA 71 13 03, 22 00 00 00 00");
}

TEST_F(LMXBluetoothModuleTest, ACallDoesNotWaitForTheRegistry) {
    Driver driver;
    terminal.clock().setSpeed(Slow);
    ASSERT_TRUE(driver.initModule());
    unsigned char address[] = {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13};
    driver.registryLock.lock();
    EXPECT_TRUE(driver.connectSPP(2, address, 3)) << "though the thread cannot report the link yet";
    driver.registryLock.unlock();
    hurry();
}

TEST_F(LMXBluetoothModuleTest, AHundredKilobytesCrossUnharmedBothWays) {
    start();
    terminal.clock().setSpeed(Slow / 10);  // of hundreds of confirmations none is late
    Connection link = call();
    ASSERT_TRUE(link->connect());
    string sent, back;
    for (unsigned i = 0; sent.size() < 100'000; ++i) {
        string part;
        for (unsigned j = 0; j < 1 + i * 37 % 1023; ++j)
            part += static_cast<char>(i * 31 + j * 7 + (j >> 8));
        module.sendPacket('i', 0x75, "\x00\x1A\x7D\xDA\x71\x13"s);  // answered amid the data
        ASSERT_EQ(link->writeData(part.data(), unsigned(part.size())), int(part.size()));
        back += receive(*link, part.size());
        sent += part;
    }
    EXPECT_TRUE(back == sent);
    const string packets = take("packet");
    EXPECT_NE(packets.find("75 00 1A"), string::npos);
    EXPECT_EQ(packets.find("bad"), string::npos) << "no packet is written into another";
}

TEST_F(LMXBluetoothModuleTest, ShuttingDownWaitsForTheLastConnectionAndEndsAnything) {
    start();
    Connection link = call();
    hurry();
    EXPECT_FALSE(driver().shutdown());
    EXPECT_TRUE(link->connect()) << "the thread runs on";
    link.reset();
    module.transmit("\x02i\x10\xFF");  // a packet that is never completed
    EXPECT_TRUE(driver().shutdown() && driver().shutdown());
    EXPECT_TRUE(LMXBluetoothModule::initialize()) << "the module is still the current one";
    terminal.clock().setSpeed(Slow);
    EXPECT_TRUE(driver().initModule());
    hurry();
    module.line().hangUp();
    const int before = terminal.faults().calls();
    EXPECT_FALSE(driver().setEnabled(true));
    {
        const sim::HostTime hostTime;
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_LT(terminal.faults().calls() - before, 1000) << "a dead line is not read without pause";
}

TEST_F(LMXBluetoothModuleTest, ConnectionsAndDriverGoAtAnyMomentOfADelivery) {
    for (int round = 0; round < 5; ++round) {
        start();
        std::atomic<bool> isOver{false};
        auto flood = test::inBackground([&] {
            const sim::HostTime hostTime;
            for (; !isOver; std::this_thread::sleep_for(1ms)) {
                module.sendPacket('i', 0x0C, "\0\x1A\x7D\xDA\x71\x13\x01"s);
                module.sendPacket('i', 0x10, "\x01\x64\0"s + string(100, 'f'));
            }
        });
        for (int connections = 0; connections < 10; ++connections) {
            Connection link(driver().createIncomingSPPConnection(1));
            EXPECT_EQ(receive(*link, 100).front(), 'f');
        }
        hurry();
        delete BluetoothModule::pModule;
        isOver = true;
    }
}

}  // namespace
