#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "io/FileDescriptor.h"
#include "sim/HostTime.h"
#include "sim/Terminal.h"
#include "sim/console/Console.h"

namespace {

using namespace std::chrono_literals;
using std::string;

constexpr char Daemon[] = "/usr/sbin/pppd";
constexpr char PidFile[] = "/var/run/ppp0.pid";
constexpr auto Limit = 30s;

/// Starts the daemon as an application does, and plays the module on the other end of its line.
class PppLinkTest : public testing::Test {
protected:
    PppLinkTest() : master(::open("/dev/ptyp1", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
        termios raw{};
        ::tcgetattr(master.get(), &raw);
        cfmakeraw(&raw);
        ::tcsetattr(master.get(), TCSANOW, &raw);
    }

    ~PppLinkTest() override {
        if (child <= 0)
            return;
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }

    void start(std::vector<const char*> arguments = {"/dev/ttyp1", "nodetach", "call",
                                                     "gprs-data"}) {
        arguments.insert(arguments.begin(), "pppd");
        arguments.push_back(nullptr);
        child = ::fork();
        if (child == 0) {
            ::setpgid(0, 0);
            ::execvp(Daemon, const_cast<char* const*>(arguments.data()));
            _exit(255);
        }
    }

    int exitStatus() {
        int status = 0;
        ::waitpid(std::exchange(child, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    bool hears(const string& text) const {
        string heard;
        return sim::eventually(
            [&] {
                char buffer[64];
                const ssize_t size = ::read(master.get(), buffer, sizeof buffer);
                heard.append(buffer, size > 0 ? static_cast<size_t>(size) : 0);
                return heard == text;
            },
            Limit);
    }

    void say(const string& text) const {
        ASSERT_EQ(::write(master.get(), text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
    }

    void answerTheDial() const {
        ASSERT_TRUE(hears("ATD*99***1#\r"));
        say("ATD*99***1#\r\r\nCONNECT\r\n");
    }

    /// One request to an interface. 0, or its error.
    int request(unsigned long number, const char* name = "ppp0") {
        const io::FileDescriptor socket(::socket(AF_INET, SOCK_STREAM, 0));
        record = {};
        strncpy(record.ifr_name, name, IFNAMSIZ - 1);
        return ::ioctl(socket.get(), number, &record) == 0 ? 0 : errno;
    }

    string addressOf(unsigned long number) {
        if (request(number) != 0)
            return "none";
        sockaddr_in ip{};
        memcpy(&ip, &record.ifr_addr, sizeof ip);
        char text[INET_ADDRSTRLEN];
        return ::inet_ntop(AF_INET, &ip.sin_addr, text, sizeof text);
    }

    bool isUp() { return request(SIOCGIFFLAGS) == 0 && (record.ifr_flags & IFF_UP); }
    bool comesUp() {
        return sim::eventually([this] { return isUp(); }, Limit);
    }

    sim::Terminal terminal;
    io::FileDescriptor master;
    pid_t child = 0;
    ifreq record{};
};

TEST_F(PppLinkTest, ADaemonDialsWritesItsNumberAndRaisesTheInterface) {
    EXPECT_EQ(request(SIOCGIFFLAGS), ENODEV);
    start({"/dev/ttyp1", "user", "me", "password", "secret", "nodetach", "debug", "record",
           "/tmp/traffic.log", "logfile", "/tmp/pppd_debug.log", "call", "gprs-data"});
    answerTheDial();
    ASSERT_TRUE(comesUp());
    EXPECT_TRUE(record.ifr_flags & IFF_POINTOPOINT);
    EXPECT_EQ(addressOf(SIOCGIFADDR), "10.64.64.64");
    EXPECT_EQ(addressOf(SIOCGIFDSTADDR), "10.64.64.65");
    EXPECT_EQ(addressOf(SIOCGIFNETMASK), "255.255.255.255");
    EXPECT_EQ(request(SIOCGIFMTU), 0);
    EXPECT_EQ(record.ifr_mtu, 1500);
    EXPECT_EQ(request(SIOCGIFHWADDR), 0);
    EXPECT_EQ(record.ifr_hwaddr.sa_family, ARPHRD_PPP);
    EXPECT_EQ(terminal.files().read(PidFile), std::to_string(child) + "\n");
    EXPECT_EQ(terminal.journal().history("pppd"),
              "start /dev/ttyp1 user me password secret nodetach debug record /tmp/traffic.log "
              "logfile /tmp/pppd_debug.log call gprs-data");
    EXPECT_NE(::access(PidFile, F_OK), -1);

    EXPECT_EQ(::kill(child, SIGTERM), 0);
    EXPECT_EQ(exitStatus(), 5);
    EXPECT_EQ(request(SIOCGIFFLAGS), ENODEV);
    EXPECT_EQ(::access(PidFile, F_OK), -1);
    EXPECT_EQ(terminal.journal().history("ppp0"), "address 10.64.64.64, up, down");
}

TEST_F(PppLinkTest, EveryEndOfACallEndsTheDaemon) {
    const struct {
        string said;
        int status;
    } ends[] = {{"\r\nNO CARRIER\r\n", 16}, {"", 16}};
    for (const auto& end : ends) {
        start();
        answerTheDial();
        ASSERT_TRUE(comesUp());
        if (end.said.empty())
            master.reset();
        else
            say(end.said);
        EXPECT_EQ(exitStatus(), end.status);
        EXPECT_EQ(request(SIOCGIFFLAGS), ENODEV);
    }
    start();
    EXPECT_EQ(exitStatus(), 7) << "no line without its master";
    start({"/dev/ttyp1", "unknown-option"});
    EXPECT_EQ(exitStatus(), 2);
    start({"nodetach"});
    EXPECT_EQ(exitStatus(), 2);
}

TEST_F(PppLinkTest, ARefusedDialEndsTheDaemonUnlessItPersists) {
    start();
    ASSERT_TRUE(hears("ATD*99***1#\r"));
    say("\r\nNO CARRIER\r\n");
    EXPECT_EQ(exitStatus(), 8);
    start({"/dev/ttyp1", "nodetach", "persist", "maxfail", "0", "call", "gprs-data"});
    ASSERT_TRUE(hears("ATD*99***1#\r"));
    say("\r\nERROR\r\n");
    answerTheDial();
    ASSERT_TRUE(comesUp());
}

TEST_F(PppLinkTest, ItCanBeToldToMisbehave) {
    terminal.ppp().setNeverUp(true);
    terminal.ppp().setStubborn(true);
    start();
    ASSERT_TRUE(hears("ATD*99***1#\r"));
    EXPECT_TRUE(terminal.files().exists(PidFile));
    EXPECT_EQ(::kill(child, SIGTERM), 0);
    say("\r\nCONNECT\r\n\r\nNO CARRIER\r\n");
    EXPECT_EQ(exitStatus(), 16) << "not by the signal";
    EXPECT_EQ(terminal.journal().history("ppp0"), "");

    sim::Console console(terminal);
    EXPECT_EQ(console.execute("ppp normal"), "");
    terminal.ppp().setWithoutPidFile(true);
    ::unlink(PidFile);
    start();
    answerTheDial();
    ASSERT_TRUE(comesUp());
    EXPECT_EQ(::access(PidFile, F_OK), -1);
    EXPECT_EQ(console.execute("ppp crash"), "");
    EXPECT_EQ(exitStatus(), -SIGKILL);
    EXPECT_TRUE(sim::eventually([this] { return request(SIOCGIFFLAGS) == ENODEV; }, Limit))
        << "an interface does not outlive its daemon";

    terminal.programs().failNext("pppd", 3);
    start();
    EXPECT_EQ(exitStatus(), 3);
    terminal.programs().setMissing("pppd", true);
    start();
    EXPECT_EQ(exitStatus(), 255);
}

TEST_F(PppLinkTest, OtherWaysToStartItAreRealAsWellAndNoOtherProgramIs) {
    char name[] = "pppd";
    char device[] = "/dev/ttyp1";
    char* const arguments[] = {name, device, nullptr};
    ASSERT_EQ(::posix_spawn(&child, Daemon, nullptr, nullptr, arguments, environ), 0);
    answerTheDial();
    ASSERT_TRUE(comesUp());
    EXPECT_EQ(::kill(child, 0), 0);
    EXPECT_EQ(::kill(getppid(), 0), -1) << "nobody's but its own";
    EXPECT_EQ(::kill(child, SIGINT), 0);
    EXPECT_EQ(exitStatus(), 5);

    child = ::fork();
    if (child == 0) {
        ::execl(Daemon, "pppd", "/dev/none", nullptr);
        _exit(255);
    }
    EXPECT_EQ(exitStatus(), 7);
    EXPECT_EQ(::execv("/bin/true", arguments), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(WEXITSTATUS(::system("/usr/sbin/pppd /dev/none")), 7);
    EXPECT_EQ(WEXITSTATUS(::system("true")), 127);
}

}  // namespace
