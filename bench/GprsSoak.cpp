// A GPRS link on the simulated terminal in fast time, through many drops and suspends:
//
//     GprsSoak [DROPS [SUSPENDS [SEED]]]
//
// Each has to be followed by NETWORK_UP and a data call that stands, and in the end the process has
// to have as many descriptors, threads and children and as much memory as after a tenth of it. The
// exit status is 1 otherwise.
//
// What this program does besides waiting is what any application does: it asks for a suspend until
// that is granted, and when the link does not come back by itself it shuts it down and starts anew.
// It has to for whatever ends the multiplexer, which only a start or a wake-up builds up.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "bench/Process.h"
#include "foundation/Thread.h"
#include "network/GprsConnection.h"
#include "power/PowerManager.h"
#include "sim/HostTime.h"
#include "sim/Terminal.h"

namespace {

using namespace std::chrono_literals;

constexpr double Watching = 40;   // while all that passes is the connection's own pauses
constexpr double Exchanging = 4;  // while the module's answers have short limits
constexpr auto HostLimit = 120s;  // for whatever has to come, on a busy machine too
constexpr int LongestPauseMs = 2500;
constexpr int RefusalsBeforeRestart = 2;
constexpr int FailuresBeforeRestart = 4;
constexpr int StartTries = 5;
constexpr int WakeKey = 28;
constexpr char PidFile[] = "/var/run/ppp0.pid";

/// What the link has told, and a way to wait for more of it.
class Story : public NetworkEventListener {
public:
    struct Counts {
        int ups = 0, downs = 0, silences = 0;
    };

    void networkEvent(NetworkEvent event) override {
        note([&] {
            counts.ups += event == NETWORK_UP ? 1 : 0;
            counts.downs += event == NETWORK_DOWN ? 1 : 0;
        });
    }
    void signalQuality(int) override {}
    void statusMessage(const char*) override {}
    void errorMessage(const char* text) override {
        if (std::string(text) == "Failed requesting network information")
            note([&] { ++counts.silences; });
    }

    Counts now() const {
        const std::lock_guard<std::mutex> held(mutex);
        return counts;
    }

    template <class Condition> bool await(Condition condition) {
        const sim::HostTime hostTime;
        std::unique_lock<std::mutex> held(mutex);
        return changed.wait_for(held, HostLimit, [&] { return condition(counts); });
    }

private:
    template <class Change> void note(Change change) {
        const std::lock_guard<std::mutex> held(mutex);
        change();
        changed.notify_all();
    }

    mutable std::mutex mutex;
    std::condition_variable changed;
    Counts counts;  // guarded by mutex
};

class Soak {
public:
    Soak(int drops, int suspends, unsigned seed) : chance(seed) {
        constexpr Event Drops[] = {DaemonEnds, DaemonKilled, CallEnds, RadioSilent};
        constexpr Event LostMultiplexers[] = {MuxCloses, LineHangsUp};
        for (int i = 0; i < drops; ++i)
            events.push_back(i % 10 == 9 ? LostMultiplexers[i / 10 % 2] : Drops[i % 4]);
        for (int i = 0; i < suspends; ++i)
            events.push_back(i % 4 == 0 ? SuspendWhileLost : Suspend);
        std::shuffle(events.begin(), events.end(), chance);
        link.addListener(&story);
    }

    int run() {
        const auto began = hostNow();
        if (!begin() || !story.await([](const Story::Counts& told) { return told.ups > 0; }))
            return report("the link does not come up at all");
        bench::Held before{};
        const size_t warm = events.size() / 10;
        for (size_t i = 0; i < events.size(); ++i) {
            if (i == warm)
                before = usedWhenQuiet();
            const auto since = sim::Clock::get().monotonic();
            if (!survives(events[i]))
                return report("no link after event " + std::to_string(i) + ", " + Names[events[i]]);
            longest = std::max(longest, sim::Clock::get().monotonic() - since);
            terminal.journal().clear();
        }
        const bench::Held after = usedWhenQuiet();
        end();
        const auto took = std::chrono::duration_cast<std::chrono::seconds>(hostNow() - began);
        printf("%zu events, each followed by a link after at most %.0f s of the terminal's time; "
               "%d attempts to start it, %d links that did not come back otherwise; %lld s in all; "
               "%s\n",
               events.size(), std::chrono::duration<double>(longest).count(), starts, unplanned,
               static_cast<long long>(took.count()), after.since(before).c_str());
        return after.isNotMoreThan(before) ? 0 : report("something has grown");
    }

private:
    enum Event {
        DaemonEnds,        // as if told to
        DaemonKilled,      // its pid file is removed by whoever did it; its call stays
        CallEnds,          // by the network
        RadioSilent,       // for some time, and the daemon ends
        MuxCloses,         // by the module
        LineHangsUp,       // the serial line's far end goes away
        Suspend,           // and resume
        SuspendWhileLost,  // the same, with the link just lost
    };
    static constexpr const char* Names[] = {"daemon ended", "daemon killed",      "call ended",
                                            "radio silent", "multiplexer closed", "line hung up",
                                            "suspend",      "suspend while lost"};

    static GPRS_CONNECTION_SETTINGS settings() {
        GPRS_CONNECTION_SETTINGS result;
        result.pin = "1234";
        result.apn = "internet";
        return result;
    }

    static int report(const std::string& what) {
        printf("%s\n", what.c_str());
        return 1;
    }

    static std::chrono::steady_clock::time_point hostNow() {
        const sim::HostTime hostTime;
        return std::chrono::steady_clock::now();
    }

    int random(int most) { return std::uniform_int_distribution<int>(0, most)(chance); }
    /// The clock keeps every change that was ever made to it.
    void setSpeed(double speed) {
        if (terminal.clock().speed() != speed)
            terminal.clock().setSpeed(speed);
    }

    /// Starts the link as an application does that does not give up at once.
    bool begin() {
        setSpeed(Exchanging);
        for (int tries = 0; tries < StartTries; ++tries) {
            ++starts;
            if (link.initialize() && link.connect())
                return true;
            link.shutdown();
        }
        return false;
    }

    bool end() {
        setSpeed(Exchanging);
        return link.disconnect() && link.shutdown();
    }

    bool survives(Event event) {
        Thread::sleep(random(LongestPauseMs));
        const Story::Counts before = story.now();
        if (event == Suspend || event == SuspendWhileLost) {
            setSpeed(Exchanging);
            if (event == SuspendWhileLost)
                endDaemon();
            return sleepAndWake() && comesBack(story.now());
        }
        setSpeed(Watching);
        return drop(event, before) && comesBack(before);
    }

    void endDaemon() { terminal.programs().signalRunning("pppd", SIGTERM); }

    /// True once the loss has been seen and, where it takes that, a new start has been made.
    bool drop(Event event, const Story::Counts& before) {
        sim::RadioModule& radio = terminal.radio();
        switch (event) {
        case DaemonEnds: endDaemon(); return true;
        case DaemonKilled:
            terminal.ppp().crash();
            terminal.files().remove(PidFile);
            return true;
        case CallEnds: radio.dropCall(); return true;
        case RadioSilent: {
            radio.setSilent(true);
            endDaemon();
            const int refusals = random(1);
            const bool isTold = story.await(
                [&](const Story::Counts& told) { return told.downs >= before.downs + refusals; });
            radio.setSilent(false);
            return isTold;
        }
        case MuxCloses:
            radio.closeDown();
            return story.await([&](const Story::Counts& told) {
                return told.downs >= before.downs + RefusalsBeforeRestart;
            }) && restart();
        case LineHangsUp:
            // The daemon knows nothing of it; that the module tells nothing any more shows it.
            radio.line().hangUp();
            return story.await([&](const Story::Counts& told) {
                return told.silences >= before.silences + RefusalsBeforeRestart;
            }) && restart();
        case Suspend:
        case SuspendWhileLost: break;
        }
        return false;
    }

    bool restart() { return end() && begin(); }

    bool sleepAndWake() {
        PowerManager& manager = *PowerManager::getPowerManager();
        terminal.power().wakeByKey(WakeKey, 30s);
        const auto since = std::chrono::steady_clock::now();
        while (!manager.setPowerMode(POWER_SUSPEND)) {
            if (std::chrono::steady_clock::now() - since > HostLimit * Exchanging)
                return false;
            Thread::sleep(500);
        }
        manager.setPowerMode(POWER_ON);  // unless the key has done so already
        return true;
    }

    /// The link is up again, at the latest after a new start.
    bool comesBack(const Story::Counts& before) {
        const auto hasFailed = [&](const Story::Counts& told) {
            return told.downs >= before.downs + FailuresBeforeRestart;
        };
        const auto isUp = [&](const Story::Counts& told) { return told.ups > before.ups; };
        if (!story.await([&](const Story::Counts& told) { return isUp(told) || hasFailed(told); }))
            return false;
        if (!isUp(story.now())) {
            ++unplanned;
            if (!restart() || !story.await(isUp))
                return false;
        }
        return terminal.ppp().isRunning() && terminal.radio().isOnline(2);
    }

    /// Once nothing is under way.
    static bench::Held usedWhenQuiet() {
        Thread::sleep(2000);
        return bench::Held::now();
    }

    sim::Terminal terminal;
    struct Power {
        Power() { PowerManager::initPowerManager(); }
        Power(const Power&) = delete;
        Power& operator=(const Power&) = delete;
        ~Power() { PowerManager::deinitPowerManager(); }
    } power;
    Story story;
    GprsConnection link{settings()};
    std::mt19937 chance;
    std::vector<Event> events;
    sim::Nanoseconds longest{0};
    int starts = 0;     // also those that failed
    int unplanned = 0;  // restarts, where the link should have come back by itself
};

}  // namespace

int main(int argc, char** argv) {
    const auto number = [&](int at, int otherwise) {
        return argc > at ? std::atoi(argv[at]) : otherwise;
    };
    return Soak(number(1, 1000), number(2, 200), static_cast<unsigned>(number(3, 1))).run();
}
