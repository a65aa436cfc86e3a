// Telling four listeners of a change against the least it can cost: a walk of a std::list under a
// std::mutex.

#include <list>
#include <mutex>

#include "bench/Ratio.h"
#include "foundation/EventBroadcaster.h"
#include "foundation/PowerEventListener.h"

namespace {

constexpr int Listeners = 4;

class CountingListener : public PowerEventListener {
public:
    bool powerStateChange(PowerState, PowerState) override {
        benchmark::DoNotOptimize(++calls);
        return true;
    }

private:
    int calls = 0;
};

class Broadcaster : public EventBroadcaster<PowerEventListener> {
public:
    bool notify(PowerState from, PowerState to) {
        const auto tell = [=](PowerEventListener& listener) {
            return listener.powerStateChange(from, to);
        };
        return to < from ? notifyOldestFirst(tell) : notifyNewestFirst(tell);
    }
};

void notification(benchmark::State& state) {
    CountingListener listeners[Listeners];
    Broadcaster broadcaster;
    for (CountingListener& listener : listeners)
        broadcaster.addListener(&listener);
    for (auto _ : state)
        benchmark::DoNotOptimize(broadcaster.notify(POWER_ON, POWER_DIMMED));
}
BENCHMARK(notification);

void bareWalk(benchmark::State& state) {
    CountingListener listeners[Listeners];
    std::list<PowerEventListener*> list;
    std::mutex mutex;
    for (CountingListener& listener : listeners)
        list.push_back(&listener);
    for (auto _ : state) {
        const std::lock_guard<std::mutex> held(mutex);
        bool agreed = true;
        for (auto at = list.rbegin(); at != list.rend() && agreed; ++at)
            agreed = (*at)->powerStateChange(POWER_ON, POWER_DIMMED);
        benchmark::DoNotOptimize(agreed);
    }
}
BENCHMARK(bareWalk);

}  // namespace

int main(int argc, char** argv) {
    bench::RatioReporter reporter;
    bench::runAll(argc, argv, reporter);
    reporter.printTimes("notification", "bareWalk", 1.2);
    return reporter.status();
}
