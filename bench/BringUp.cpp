// How long a link takes to come up, from initialize() to NETWORK_UP, beyond the waits that its
// contract has and the time that the simulated module is given to answer.
//
// GPRS: the pulse of the power key, 20 ms before every command, the engine's waits for its two
// commands, and a step of 200 ms until the daemon has dialled. WLAN: the first look at the
// interface after 250 ms; what remains there is the terminal's programs, so five bare starts of one
// by the shell stand beside it.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "network/GprsConnection.h"
#include "network/WlanConnection.h"
#include "power/PowerManager.h"
#include "sim/Terminal.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int Times = 10;
constexpr auto AnswerTime = milliseconds(10);
constexpr auto None = milliseconds(0);

class Up : public NetworkEventListener {
public:
    void networkEvent(NetworkEvent event) override {
        const std::lock_guard<std::mutex> held(mutex);
        isUp = event == NETWORK_UP;
        at = steady_clock::now();
        changed.notify_all();
    }
    void signalQuality(int) override {}
    void errorMessage(const char* text) override { printf("%s\n", text); }
    void statusMessage(const char*) override {}

    bool await(steady_clock::time_point& when) {
        std::unique_lock<std::mutex> held(mutex);
        const bool came = changed.wait_for(held, std::chrono::seconds(60), [this] { return isUp; });
        when = at;
        return came;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool isUp = false;
    steady_clock::time_point at;
};

double inMs(steady_clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

void print(const char* what, std::vector<double> times) {
    std::sort(times.begin(), times.end());
    printf("%s: median %.1f ms, worst %.1f ms of %zu\n", what, times[times.size() / 2],
           times.back(), times.size());
}

/// Brings the link up and down. What the time to come up was; negative when it did not.
steady_clock::duration bringUp(NetworkConnection& link) {
    Up up;
    link.addListener(&up);
    const auto begin = steady_clock::now();
    steady_clock::time_point end;
    const bool came = link.initialize() && link.connect() && up.await(end);
    const bool left = link.disconnect() && link.shutdown();
    return came && left ? end - begin : steady_clock::duration(-1);
}

/// What the GPRS link has to wait for, with so many commands in all.
milliseconds waitsFor(long commands) {
    constexpr auto PowerUp = milliseconds(10 + 1000);
    constexpr auto Pause = milliseconds(20);
    constexpr auto Engine = 2 * milliseconds(20 + 100);  // its two commands, with their answers
    constexpr auto Attach = milliseconds(100);           // the module's, beyond its usual answer
    constexpr auto DaemonStep = milliseconds(200);       // the dialling is over within one
    constexpr long Others = 3;                           // the engine's two, and the daemon's
    // The first pause on the engine's port passes during the engine's own.
    return PowerUp + (commands - Others) * (Pause + AnswerTime) - Pause + Engine + Attach +
           DaemonStep;
}

bool gprs(sim::Terminal& terminal) {
    sim::RadioModule& radio = terminal.radio();
    radio.setBootTime(None);
    radio.setAnswerTime(AnswerTime);
    radio.setRegistrationTime(None);
    GPRS_CONNECTION_SETTINGS settings;
    settings.pin = "1234";
    settings.apn = "internet";
    std::vector<double> beyond;
    milliseconds waits{0};
    for (int i = 0; i < Times; ++i) {
        terminal.journal().clear();
        GprsConnection link(settings);
        const auto took = bringUp(link);
        if (took < steady_clock::duration::zero())
            return false;
        long commands = 0;
        for (const std::string& line : terminal.journal().lines())
            commands += line.rfind("radio: AT", 0) == 0 ? 1 : 0;
        waits = waitsFor(commands);
        beyond.push_back(inMs(took - waits));
    }
    print(("GPRS beyond " + std::to_string(waits.count()) + " ms of waits and answers").c_str(),
          beyond);
    return true;
}

bool wlan(sim::Terminal& terminal) {
    constexpr auto FirstLook = milliseconds(250);
    terminal.wlan().appearAfter(None);
    terminal.wlan().associateAfter(None);
    WLAN_CONNECTION_SETTINGS settings{};
    settings.ssid = "\"Warehouse\"";
    settings.securityType = 3;
    settings.psk = "\"forklift-7\"";
    std::vector<double> beyond, programs;
    for (int i = 0; i < Times; ++i) {
        WlanConnection link(settings);
        const auto took = bringUp(link);
        if (took < steady_clock::duration::zero())
            return false;
        beyond.push_back(inMs(took - FirstLook));
        const auto begin = steady_clock::now();
        for (int program = 0; program < 5; ++program) {
            if (std::system("modprobe ohci-hcd") != 0)
                return false;
        }
        programs.push_back(inMs(steady_clock::now() - begin));
    }
    print("WLAN beyond its wait of 250 ms", beyond);
    print("five bare starts of a program", programs);
    return true;
}

}  // namespace

int main() {
    sim::Terminal terminal;
    if (!PowerManager::initPowerManager())
        return 1;
    const bool isWhole = gprs(terminal) && wlan(terminal);
    PowerManager::deinitPowerManager();
    return isWhole ? 0 : 1;
}
