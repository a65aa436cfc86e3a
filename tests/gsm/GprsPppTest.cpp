#include "gsm/GprsPpp.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "foundation/Worker.h"
#include "io/FileDescriptor.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using test::soon;

constexpr char Device[] = "/dev/ttyp1";
constexpr char PidPath[] = "/var/run/ppp0.pid";

bool isAlive(pid_t child) { return ::waitpid(child, nullptr, WNOHANG) == 0; }
bool isReaped(pid_t child) { return ::waitpid(child, nullptr, WNOHANG) < 0; }

/// A process of the test's own group that does nothing.
struct Child {
    Child() : pid(::fork()) {
        while (pid == 0)
            ::pause();
    }
    ~Child() {
        if (isAlive(pid)) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
    }

    const pid_t pid;
};

/// At the other end of the daemon's line: puts every call through.
struct Modem {
    Modem() { worker.start(); }

    const io::FileDescriptor master{::open("/dev/ptyp1", O_RDWR | O_NONBLOCK)};
    test::Worker worker{[this](test::Worker& self) {
        for (string heard; !self.stopRequested(); Thread::sleep(50)) {
            heard += test::readFrom(master.get(), 64, 0ms);
            if (heard.find("ATD") == string::npos || heard.back() != '\r')
                continue;
            heard.clear();
            EXPECT_EQ(::write(master.get(), "\r\nCONNECT\r\n", 11), 11);
        }
    }};
};

struct GprsPppTest : test::TerminalTest {
    bool hasPidFile() { return terminal.files().exists(PidPath); }
    void writePidFile(const string& text) {
        std::ofstream(terminal.files().hostPath(PidPath)) << text;
    }

    static bool start(GPRSPPP_PARAMETERS parameters = {}) {
        return GprsPpp::start(Device, &parameters);
    }
};

TEST_F(GprsPppTest, APidFileThatNamesNoDaemonSignalsNobodyAndAnyOtherProcessIsKilled) {
    const Child bystander;
    const struct {
        string text;
        int pid;
    } cases[] = {{"", 0},
                 {"garbage\n", 0},
                 {"0\n", 0},
                 {"99999999999999999999", 0},
                 {" \n 1 \n", 1},  // init
                 {std::to_string(::getpid()), ::getpid()}};
    EXPECT_EQ(GprsPpp::getDaemonPID(), -1);
    EXPECT_FALSE(GprsPpp::isRunning() || GprsPpp::stop());
    for (const auto& [text, pid] : cases) {
        SCOPED_TRACE(text);
        writePidFile(text);
        EXPECT_EQ(GprsPpp::getDaemonPID(), pid);
        EXPECT_TRUE(GprsPpp::isRunning());
        EXPECT_LT(simulated([] { EXPECT_TRUE(GprsPpp::stop()); }), 9s) << "nothing to wait for";
        EXPECT_FALSE(hasPidFile());
    }
    writePidFile("-" + std::to_string(::getpid()));
    EXPECT_EQ(GprsPpp::getDaemonPID(), -::getpid());
    EXPECT_FALSE(GprsPpp::isRunning() || GprsPpp::stop());
    EXPECT_TRUE(hasPidFile() && isAlive(bystander.pid));

    for (const bool isDead : {false, true}) {
        terminal.clock().setSpeed(isDead ? 1 : 20);
        writePidFile(std::to_string(bystander.pid) + "\n");
        const auto taken = simulated([] { EXPECT_TRUE(GprsPpp::stop()); });
        EXPECT_EQ(taken < 10s, isDead);
        EXPECT_TRUE(isReaped(bystander.pid));
        EXPECT_FALSE(hasPidFile());
    }
}

TEST_F(GprsPppTest, ADaemonThatDoesNotComeUpIsEndedWhateverItIsTold) {
    const struct {
        GPRSPPP_PARAMETERS parameters;
        bool isDeaf;
        const char* arguments;
    } cases[] = {
        {{}, false, "nodetach call gprs-data"},
        {{true, "me", "secret", false, false},
         true,
         "user me password secret nodetach call gprs-data"},
        {{true, nullptr, nullptr, true, true},
         false,
         "user  password  nodetach debug record /tmp/traffic.log logfile /tmp/pppd_debug.log "
         "persist maxfail 0 call gprs-data"},
    };
    const Modem modem;
    terminal.clock().setSpeed(50);
    terminal.ppp().setNeverUp(true);
    for (const auto& tried : cases) {
        terminal.ppp().setStubborn(tried.isDeaf);
        const auto taken = simulated([&] { EXPECT_FALSE(start(tried.parameters)); });
        EXPECT_GE(taken, tried.isDeaf ? 40s : 30s);
        EXPECT_THAT(take("pppd"),
                    testing::StartsWith("start /dev/ttyp1 " + string(tried.arguments)));
        EXPECT_FALSE(hasPidFile() || GprsPpp::isRunning());
        EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "it has been waited for";
    }
    GPRSPPP_PARAMETERS any{};
    EXPECT_FALSE(GprsPpp::start(nullptr, &any) || GprsPpp::start(Device, nullptr));
}

TEST_F(GprsPppTest, ADaemonThatEndsByItselfIsReapedAndOneThatIsDeafIsKilled) {
    const Modem modem;
    ASSERT_TRUE(start());
    pid_t pid = GprsPpp::getDaemonPID();
    terminal.programs().signalRunning("pppd", SIGTERM);
    EXPECT_TRUE(soon([&] { return !GprsPpp::isRunning() && isReaped(pid); }));

    terminal.clock().setSpeed(20);
    terminal.ppp().setStubborn(true);
    ASSERT_TRUE(start());
    pid = GprsPpp::getDaemonPID();
    EXPECT_GE(simulated([] { EXPECT_TRUE(GprsPpp::stop()); }), 10s);
    EXPECT_TRUE(isReaped(pid));
    EXPECT_FALSE(hasPidFile());

    // A cancelled start takes its daemon along.
    terminal.clock().setSpeed(1);
    terminal.ppp().setNeverUp(true);
    test::Worker worker([](test::Worker&) { start(); });
    ASSERT_TRUE(worker.start() && soon([] { return GprsPpp::getDaemonPID() > 0; }));
    pid = GprsPpp::getDaemonPID();
    EXPECT_TRUE(worker.terminate() && isReaped(pid));
    EXPECT_FALSE(hasPidFile());
}

}  // namespace
