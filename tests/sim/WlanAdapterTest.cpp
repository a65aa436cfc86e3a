// The WLAN of the simulated terminal, by way of the calls that a program makes: none of them would
// do the same on the host.

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "io/FileDescriptor.h"
#include "network/WlanProtocol.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;

using WlanAdapterTest = test::PoweredTest;

int statusOf(const char* command) {
    const int status = system(command);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST_F(WlanAdapterTest, NoRequestReachesTheHostsInterfacesOrRoutes) {
    const io::FileDescriptor socket(::socket(AF_INET, SOCK_STREAM, 0));
    ifreq record{};
    const auto request = [&](unsigned long number, const char* name) {  // 0, or its error
        std::strncpy(record.ifr_name, name, IFNAMSIZ);
        return ::ioctl(socket.get(), number, &record) == 0 ? 0 : errno;
    };
    // The kernel's numbers once more: library and simulated adapter share their header.
    EXPECT_EQ((std::vector<unsigned>{wlan::GetInterfaceFlags, wlan::SetInterfaceFlags,
                                     wlan::GetInterfaceAddress, wlan::GetHardwareAddress,
                                     wlan::GetFrequency, wlan::GetStatistics, wlan::GetEssid}),
              (std::vector<unsigned>{SIOCGIFFLAGS, SIOCSIFFLAGS, SIOCGIFADDR, SIOCGIFHWADDR, 0x8B05,
                                     0x8B0F, 0x8B1B}));
    EXPECT_EQ(offsetof(wlan::WirelessStatistics, level), 3U);
    for (const char* name : {"lo", "eth0", "", "ra0", "ra1"})
        EXPECT_EQ(request(SIOCGIFFLAGS, name), ENODEV) << name;
    terminal.wlan().appearAfter(0s);
    terminal.wlan().associateAfter(0s);
    power().mpciEnable3V3(true);
    power().mpciEnableRadio(true);
    EXPECT_EQ(statusOf("modprobe ohci-hcd"), 0);
    EXPECT_EQ(statusOf("insmod /lib/modules/wireless/rt3070sta.ko"), 0);
    EXPECT_TRUE(terminal.modules().isLoaded("ohci_hcd"));
    record.ifr_flags = IFF_UP;
    EXPECT_EQ(request(SIOCSIFFLAGS, "ra0"), 0);
    EXPECT_EQ(request(SIOCGIFMTU, "ra0"), EOPNOTSUPP);
    EXPECT_EQ(request(SIOCGIFADDR, "ra0"), EADDRNOTAVAIL);
    terminal.faults().fail("ioctl", "ra0", EIO);
    EXPECT_EQ(request(SIOCGIFFLAGS, "ra0"), EIO);
    EXPECT_EQ(::ioctl(-1, SIOCGIFFLAGS, &record), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(::ioctl(socket.get(), SIOCGIFFLAGS, nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST_F(WlanAdapterTest, OnlyTheTerminalsProgramsRunAndTheirEndsAreReal) {
    sim::Programs& programs = terminal.programs();
    for (const char* command : {"ls /", "", "/bin/../bin/sh -c true"})
        EXPECT_EQ(statusOf(command), 127) << command;
    programs.setMissing("rmmod", true);
    EXPECT_EQ(statusOf("rmmod x"), 127);
    programs.setMissing("rmmod", false);
    programs.failNext("rmmod", 42);
    EXPECT_EQ(statusOf("/sbin/rmmod x"), 42);
    EXPECT_EQ(statusOf("rmmod x"), 1) << "once";
    programs.crashNext("rmmod", SIGKILL);
    const int killed = statusOf("rmmod x");
    EXPECT_TRUE(killed == -SIGKILL || killed == 128 + SIGKILL) << "of the program or its shell";
}

}  // namespace
