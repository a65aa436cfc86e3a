#include "sim/devices/DhcpServer.h"

#include <chrono>

#include "sim/Clock.h"

namespace sim {
namespace {

constexpr auto TryPause = std::chrono::seconds(3);  // between the client's tries

std::string realMilliseconds(Nanoseconds simulated) {
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    return std::to_string(
        duration_cast<milliseconds>(Clock::get().realDuration(simulated)).count());
}

/// The value of "NAME=value" among the words.
std::string valueOf(const Words& words, const std::string& name) {
    for (const std::string& word : words) {
        if (word.compare(0, name.size() + 1, name + "=") == 0)
            return word.substr(name.size() + 1);
    }
    return "";
}

}  // namespace

DhcpServer::DhcpServer(Journal& eventJournal, WlanAdapter& wlanAdapter, Programs& programs)
    : journal(eventJournal), adapter(wlanAdapter) {
    programs.answer("udhcpc", [this](const Words& question) { return answerClient(question); });
    programs.answer("default.script",
                    [this](const Words& question) { return answerScript(question); });
}

void DhcpServer::setLease(const Lease& newLease) {
    const std::lock_guard<std::mutex> held(mutex);
    lease = newLease;
}

void DhcpServer::setAnswering(bool answering) {
    const std::lock_guard<std::mutex> held(mutex);
    isAnswering = answering;
}

/// A try either brings a lease, or how long to pause before the next.
Words DhcpServer::answerClient(const Words& question) {
    if (question[0] == "release") {
        journal.note("udhcpc", "release");
        return {""};
    }
    const bool isHeard =
        question.size() == 2 && question[1] == adapter.name() && !adapter.essid().empty();
    const std::lock_guard<std::mutex> held(mutex);
    journal.note("udhcpc", "discover");
    if (!isHeard || !isAnswering)
        return {"none", realMilliseconds(TryPause)};
    return {"lease", lease.ip, lease.subnet, lease.router, lease.dns};
}

Words DhcpServer::answerScript(const Words& question) {
    constexpr const char* Variables[] = {"interface", "ip", "subnet", "router", "dns"};
    std::string text = question.size() > 1 ? question[1] : "";
    const bool isBound = text == "bound";
    for (const char* variable : Variables) {
        if (isBound)
            text += std::string(" ") + variable + "=" + valueOf(question, variable);
    }
    journal.note("default.script", text);
    if (valueOf(question, "interface") != adapter.name())
        return {"1"};
    adapter.setAddress(isBound ? valueOf(question, "ip") : "");
    return {"0"};
}

}  // namespace sim
