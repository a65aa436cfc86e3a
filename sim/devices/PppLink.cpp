#include "sim/devices/PppLink.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sim/Clock.h"
#include "sim/Device.h"
#include "sim/devices/RadioCommands.h"

namespace sim {
namespace {

constexpr char PeerAddress[] = "10.64.64.65";
constexpr char Netmask[] = "255.255.255.255";
constexpr int Mtu = 1500;

int putAddress(ifreq& record, const char* dotted) {
    sockaddr_in ip{};
    ip.sin_family = AF_INET;
    inet_pton(AF_INET, dotted, &ip.sin_addr);
    memcpy(&record.ifr_addr, &ip, sizeof record.ifr_addr);
    return 0;
}

}  // namespace

PppLink::PppLink(Journal& eventJournal, Programs& terminalPrograms)
    : NetworkInterface("ppp0", eventJournal, {}), programs(terminalPrograms) {
    programs.answer(Daemon, [this](const Words& question) { return answerDaemon(question); });
}

void PppLink::setNeverUp(bool neverUp) {
    const std::lock_guard<std::mutex> held(mutex);
    isNeverUp = neverUp;
}

void PppLink::setStubborn(bool ignoresTermination) {
    const std::lock_guard<std::mutex> held(mutex);
    isStubborn = ignoresTermination;
}

void PppLink::setWithoutPidFile(bool without) {
    const std::lock_guard<std::mutex> held(mutex);
    hasNoPidFile = without;
}

bool PppLink::isPresent() const {
    pid_t raisedBy = 0;
    {
        const std::lock_guard<std::mutex> held(mutex);
        raisedBy = owner;
    }
    const std::vector<pid_t> running = programs.running(Daemon);
    return NetworkInterface::isPresent() &&
           std::find(running.begin(), running.end(), raisedBy) != running.end();
}

void PppLink::setOwner(pid_t daemon) {
    const std::lock_guard<std::mutex> held(mutex);
    owner = daemon;
    reset();
}

/// "orders": what it is told; "speed": that of the clock; "up" and its number, "down": the link.
Words PppLink::answerDaemon(const Words& question) {
    if (question[0] == "orders") {
        const std::lock_guard<std::mutex> held(mutex);
        Words orders{""};
        if (isNeverUp)
            orders.emplace_back("never");
        if (isStubborn)
            orders.emplace_back("stubborn");
        if (hasNoPidFile)
            orders.emplace_back("no-pid-file");
        return orders;
    }
    if (question[0] == "speed")
        return {std::to_string(Clock::get().speed())};
    if (question[0] == "up" && question.size() == 2) {
        setOwner(static_cast<pid_t>(atol(question[1].c_str())));
        setPresent(true);
        setAddress(RadioNetwork::TerminalAddress);
        setUp(true);
    } else {
        setUp(false);
        setPresent(false);
    }
    return {""};
}

int PppLink::ioctl(unsigned long request, void* given) {
    ifreq& record = *static_cast<ifreq*>(given);
    if (!isPresent())
        return failWith(ENODEV);
    switch (request) {
    case SIOCGIFFLAGS:
        record.ifr_flags = static_cast<short>(IFF_POINTOPOINT | IFF_NOARP | IFF_MULTICAST |
                                              (isUp() ? IFF_UP | IFF_RUNNING : 0));
        return 0;
    case SIOCGIFDSTADDR: return putAddress(record, PeerAddress);
    case SIOCGIFNETMASK: return putAddress(record, Netmask);
    case SIOCGIFMTU: record.ifr_mtu = Mtu; return 0;
    case SIOCGIFHWADDR:
        memset(&record.ifr_hwaddr, 0, sizeof record.ifr_hwaddr);
        record.ifr_hwaddr.sa_family = ARPHRD_PPP;
        return 0;
    default: return NetworkInterface::ioctl(request, given);
    }
}

}  // namespace sim
