#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "io/FileDescriptor.h"
#include "sim/HostTime.h"
#include "sim/Terminal.h"

namespace {

using namespace std::chrono_literals;
using std::string;

constexpr char Daemon[] = "/usr/sbin/pppd";
constexpr char PidFile[] = "/var/run/ppp0.pid";
constexpr char TerminateRequest[] =  // of the PPP link
    "\x7E\xFF\x7D\x23\xC0\x21\x7D\x25\x7D\x21\x7D\x20\x7D\x24\x3D\xC7\x7E";
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

    void answerTheDial(const string& answer) const { play("ATD*99***1#\r", answer); }

    /// The module hears something, and answers it behind its echo.
    void play(const string& asked, const string& answer) const {
        string heard;
        const bool isAsked = sim::eventually(
            [&] {
                char buffer[64];
                const ssize_t size = ::read(master.get(), buffer, sizeof buffer);
                heard.append(buffer, size > 0 ? static_cast<size_t>(size) : 0);
                return heard == asked;
            },
            Limit);
        ASSERT_TRUE(isAsked) << heard;
        say(heard + answer);
    }

    void say(const string& text) const {
        ASSERT_EQ(::write(master.get(), text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
    }

    static bool isUp() {
        const io::FileDescriptor socket(::socket(AF_INET, SOCK_STREAM, 0));
        ifreq record{};
        strncpy(record.ifr_name, "ppp0", IFNAMSIZ - 1);
        return ::ioctl(socket.get(), SIOCGIFFLAGS, &record) == 0 && (record.ifr_flags & IFF_UP);
    }
    static bool becomes(bool up) {
        return sim::eventually([up] { return isUp() == up; }, Limit);
    }

    sim::Terminal terminal;
    io::FileDescriptor master;
    pid_t child = 0;
};

TEST_F(PppLinkTest, EveryEndOfACallEndsTheDaemonAndItsInterface) {
    const struct {
        std::function<void()> end;
        int status;
    } cases[] = {{[&] {
                      ::kill(child, SIGTERM);
                      play(TerminateRequest, "\r\nNO CARRIER\r\n");
                  },
                  5},
                 {[&] { say("\r\nNO CARRIER\r\n"); }, 16},
                 {[&] { terminal.ppp().crash(); }, -SIGKILL},
                 {[&] { master.reset(); }, 16}};
    for (const auto& [end, status] : cases) {
        start();
        answerTheDial("\r\nCONNECT\r\n");
        ASSERT_TRUE(becomes(true));
        EXPECT_EQ(terminal.files().read(PidFile), std::to_string(child) + "\n");
        EXPECT_EQ(::kill(getppid(), 0), -1) << "a signal reaches nobody's but its own";
        end();
        EXPECT_EQ(exitStatus(), status);
        EXPECT_TRUE(becomes(false)) << "an interface does not outlive its daemon";
    }
}

TEST_F(PppLinkTest, ADaemonWithoutACallEndsUnlessItPersists) {
    start();
    answerTheDial("\r\nNO CARRIER\r\n");
    EXPECT_EQ(exitStatus(), 8);
    start({"/dev/ttyp1", "nodetach", "persist", "maxfail", "0", "call", "gprs-data"});
    answerTheDial("\r\nERROR\r\n");
    answerTheDial("\r\nCONNECT\r\n");
    ASSERT_TRUE(becomes(true));
}

}  // namespace
