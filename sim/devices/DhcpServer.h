#pragma once

#include <mutex>
#include <string>

#include "sim/Journal.h"
#include "sim/Programs.h"
#include "sim/devices/WlanAdapter.h"

namespace sim {

/// The server behind the WLAN that the DHCP client asks for an address, and what the client's
/// script does with one. Any thread may use it.
class DhcpServer {
public:
    struct Lease {
        std::string ip, subnet, router, dns;
    };

    DhcpServer(Journal& journal, WlanAdapter& adapter, Programs& programs);

    void setLease(const Lease& newLease);

    /// It answers, or it does not until told otherwise.
    void setAnswering(bool answering);

private:
    Words answerClient(const Words& question);
    Words answerScript(const Words& question);

    Journal& journal;
    WlanAdapter& adapter;

    std::mutex mutex;  // guards what follows
    Lease lease{"192.168.1.20", "255.255.255.0", "192.168.1.1", "192.168.1.2"};
    bool isAnswering = true;
};

}  // namespace sim
