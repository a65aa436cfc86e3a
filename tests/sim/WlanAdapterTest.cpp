// The WLAN of the simulated terminal, by way of the calls that a program makes: none of them would
// do the same on the host.

#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "io/FileDescriptor.h"
#include "network/WlanProtocol.h"
#include "support/TerminalTest.h"

namespace {

using std::string;
using namespace std::chrono_literals;

constexpr char ControlPath[] = "/tmp/wpa_supplicant.ctrl/ra0";

sockaddr_un addressOf(const string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

/// A datagram socket bound to a path of the terminal.
class Datagrams {
public:
    explicit Datagrams(const string& path) : socket(::socket(AF_UNIX, SOCK_DGRAM, 0)) {
        const sockaddr_un address = addressOf(path);
        EXPECT_EQ(::bind(socket.get(), generic(address), sizeof address), 0) << path;
    }

    int connectTo(const string& path) const {
        const sockaddr_un address = addressOf(path);
        return ::connect(socket.get(), generic(address), sizeof address);
    }

    ssize_t sendTo(const string& path, const string& text) const {
        const sockaddr_un address = addressOf(path);
        return ::sendto(socket.get(), text.data(), text.size(), 0, generic(address),
                        sizeof address);
    }

    ssize_t sendMessageTo(const string& path, string text) const {
        sockaddr_un address = addressOf(path);
        iovec part{text.data(), text.size()};
        msghdr message{};
        message.msg_name = &address;
        message.msg_namelen = sizeof address;
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        return ::sendmsg(socket.get(), &message, 0);
    }

    /// What arrives within the host's limit.
    string receive() const {
        pollfd file{socket.get(), POLLIN, 0};
        const sim::HostTime hostTime;
        char text[4096];
        ::poll(&file, 1, 30'000);
        const ssize_t size = ::recv(socket.get(), text, sizeof text, MSG_DONTWAIT);
        return size < 0 ? "nothing" : string(text, static_cast<size_t>(size));
    }

private:
    io::FileDescriptor socket;
};

class WlanAdapterTest : public test::PoweredTest {
protected:
    /// 0, or the error of a request.
    int request(unsigned long number, const char* name, void* record) {
        std::strncpy(static_cast<char*>(record), name, IFNAMSIZ);
        return ::ioctl(socket.get(), number, record) == 0 ? 0 : errno;
    }

    int flagsError(const char* name = "ra0") {
        ifreq record{};
        return request(SIOCGIFFLAGS, name, &record);
    }

    static int statusOf(const char* command) {
        const int status = system(command);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    void loadDriver() {
        power().mpciEnable3V3(true);
        power().mpciEnableRadio(true);
        EXPECT_EQ(statusOf("modprobe ohci-hcd"), 0);
        EXPECT_EQ(statusOf("insmod /lib/modules/wireless/rt3070sta.ko"), 0);
    }

    /// The interface is there and up.
    void raise() {
        terminal.wlan().appearAfter(0s);
        terminal.wlan().associateAfter(0s);
        loadDriver();
        ifreq record{};
        record.ifr_flags = IFF_UP;
        EXPECT_EQ(request(SIOCSIFFLAGS, "ra0", &record), 0);
    }

    io::FileDescriptor socket{::socket(AF_INET, SOCK_STREAM, 0)};
};

TEST_F(WlanAdapterTest, NoRequestReachesTheHostsInterfacesOrRoutes) {
    ifreq record{};
    for (const char* name : {"lo", "eth0", "", "ra0\0", "ra1"})
        EXPECT_EQ(flagsError(name), ENODEV) << name;
    EXPECT_EQ(request(SIOCGIFMTU, "lo", &record), ENODEV);
    EXPECT_EQ(request(SIOCSIFADDR, "lo", &record), ENODEV);
    EXPECT_EQ(request(SIOCADDRT, "", &record), EPERM);
    raise();
    EXPECT_EQ(request(SIOCGIFMTU, "ra0", &record), EOPNOTSUPP);
    EXPECT_EQ(request(SIOCGIFADDR, "ra0", &record), EADDRNOTAVAIL);
    terminal.wlan().setAddress("10.20.30.40");
    EXPECT_EQ(request(SIOCGIFADDR, "ra0", &record), 0);
    sockaddr_in address{};
    memcpy(&address, &record.ifr_addr, sizeof address);
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(ntohl(address.sin_addr.s_addr), 0x0A141E28U);
    terminal.faults().fail("ioctl", "ra0", EIO);
    EXPECT_EQ(flagsError(), EIO);
    EXPECT_EQ(::ioctl(-1, SIOCGIFFLAGS, &record), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(::ioctl(socket.get(), SIOCGIFFLAGS, nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST_F(WlanAdapterTest, OnlyTheTerminalsProgramsRunAndTheirEndsAreReal) {
    sim::Programs& programs = terminal.programs();
    EXPECT_EQ(statusOf("ls /"), 127);
    EXPECT_EQ(statusOf(""), 127);
    EXPECT_EQ(statusOf("/bin/../bin/sh -c true"), 127);
    programs.setMissing("rmmod", true);
    EXPECT_EQ(statusOf("rmmod x"), 127);
    programs.setMissing("rmmod", false);
    programs.failNext("rmmod", 42);
    EXPECT_EQ(statusOf("/sbin/rmmod x"), 42);
    EXPECT_EQ(statusOf("rmmod x"), 1) << "once";
    programs.crashNext("rmmod", SIGKILL);
    const int killed = statusOf("rmmod x");
    EXPECT_TRUE(killed == -SIGKILL || killed == 128 + SIGKILL) << "of the program or its shell";

    for (const bool isFound : {true, false}) {
        const pid_t child = fork();
        if (child == 0) {
            char name[] = "modprobe";
            char module[] = "ohci-hcd";
            char* const arguments[] = {name, module, nullptr};
            execvp(isFound ? "/sbin/modprobe" : "/bin/true", arguments);
            _exit(errno);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(WEXITSTATUS(status), isFound ? 0 : ENOENT);
    }
    EXPECT_TRUE(terminal.modules().isLoaded("ohci_hcd"));
}

TEST_F(WlanAdapterTest, SocketsOnTheTerminalsPathsLieBelowItsRootFolder) {
    namespace fs = std::filesystem;
    const string path = "/tmp/wpa_ctrl_test-1";
    ASSERT_EQ(::mkdir("/tmp/wpa_supplicant.ctrl", 0700), 0);
    {
        const Datagrams one(path);
        const Datagrams other(ControlPath);
        EXPECT_TRUE(fs::is_socket(terminal.files().hostPath(path)));
        EXPECT_TRUE(fs::is_socket(terminal.files().hostPath(ControlPath)));
        std::error_code ignored;
        EXPECT_EQ(other.sendTo(path, "sendto"), 6);
        EXPECT_EQ(one.receive(), "sendto");
        EXPECT_EQ(other.sendMessageTo(path, "sendmsg"), 7);
        EXPECT_EQ(one.receive(), "sendmsg");
        EXPECT_EQ(one.connectTo(ControlPath), 0);
        EXPECT_EQ(one.connectTo("/dev/ttyAT2"), -1);
        EXPECT_EQ(errno, ECONNREFUSED);
        EXPECT_EQ(one.connectTo("/tmp/wpa_ctrl_" + string(80, 'x')), -1);
        EXPECT_EQ(errno, ENAMETOOLONG);
        EXPECT_EQ(::unlink(path.c_str()), 0);
        EXPECT_FALSE(fs::exists(terminal.files().hostPath(path), ignored));
    }
    for (const char* call : {"bind", "connect", "sendto", "sendmsg", "socket"})
        terminal.faults().fail(call, "", EACCES);
    EXPECT_EQ(::socket(AF_UNIX, SOCK_DGRAM, 0), -1);
    const sockaddr_un address = addressOf(ControlPath);
    const io::FileDescriptor local(::socket(AF_UNIX, SOCK_DGRAM, 0));
    EXPECT_EQ(::bind(local.get(), generic(address), sizeof address), -1);
    EXPECT_EQ(::connect(local.get(), generic(address), sizeof address), -1);
    EXPECT_EQ(::sendto(local.get(), "", 0, 0, generic(address), sizeof address), -1);
    EXPECT_EQ(terminal.faults().failed(), 4);

    // Addresses that are none of the terminal's: another family's, a nameless one, the host's.
    sockaddr_in loopback{};
    loopback.sin_family = AF_INET;
    loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const io::FileDescriptor inet(::socket(AF_INET, SOCK_DGRAM, 0));
    EXPECT_EQ(::bind(inet.get(), reinterpret_cast<sockaddr*>(&loopback), sizeof loopback), 0);
    const io::FileDescriptor nameless(::socket(AF_UNIX, SOCK_DGRAM, 0));
    EXPECT_EQ(::bind(nameless.get(), generic(address), sizeof(sa_family_t)), 0);
    const string hosts =
        (fs::temp_directory_path() / ("host-" + std::to_string(getpid()))).string();
    const Datagrams outside(hosts);
    EXPECT_TRUE(fs::is_socket(hosts));
    ::unlink(hosts.c_str());
}

}  // namespace
