#include "gui/GuiLibrary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "gui/GuiTimer.h"
#include "gui/GuiWindow.h"
#include "sim/Terminal.h"
#include "support/Eventually.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using test::eventually;
using test::Limit;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

/// What happened, in order, from any thread.
class Journal {
public:
    void add(const string& entry) {
        const std::lock_guard<std::mutex> held(mutex);
        entries.push_back(entry);
    }

    bool await(size_t count) {
        return eventually([&] {
            const std::lock_guard<std::mutex> held(mutex);
            return entries.size() >= count;
        });
    }

    /// The entries since the last call.
    std::vector<string> take() {
        const std::lock_guard<std::mutex> held(mutex);
        return std::exchange(entries, {});
    }

private:
    std::mutex mutex;
    std::vector<string> entries;
};

class Timer : public GuiTimer {
public:
    explicit Timer(
        int periodMs, std::function<void()> roundAction = [] {})
        : action(std::move(roundAction)) {
        period = periodMs;
    }
    ~Timer() override { stopTimer(); }

    void onTimer() override {
        action();
        ++rounds;
    }

    bool awaitRounds(int wanted) {
        return eventually([&] { return rounds >= wanted; });
    }

    std::atomic<int> rounds{0};

private:
    const std::function<void()> action;
};

class Window : public GuiWindow {
public:
    Window(string windowName, Journal& sharedJournal)
        : GuiWindow(0), name(std::move(windowName)), journal(sharedJournal) {}

    bool onKeyDown(int key) override { return note(" down ", key); }
    bool onKeyUp(int key) override { return note(" up ", key); }

    void onTimer(int id) override {
        note(" timer ", id);
        if (timerAction)
            timerAction(id);
    }

    void onSystemEvent(int code, void*) override {
        note(" event ", code);
        if (eventAction)
            eventAction();
    }

    std::function<void(int)> timerAction;
    std::function<void()> eventAction;

private:
    bool note(const char* what, int number) {
        journal.add(name + what + std::to_string(number));
        return true;
    }

    const string name;
    Journal& journal;
};

/// A callback that stays in progress until it is let go.
class Gate {
public:
    void pass() {
        entered.set_value();
        opened.get_future().wait();
    }
    bool awaitEntered() {
        return entered.get_future().wait_for(Limit) == std::future_status::ready;
    }
    void open() { opened.set_value(); }

private:
    std::promise<void> entered;
    std::promise<void> opened;
};

/// Expects that `call`, made on another thread, returns only once the gate's callback has ended.
void expectWaitsFor(Gate& gate, const std::function<void()>& call) {
    ASSERT_TRUE(gate.awaitEntered());
    auto returned = std::async(std::launch::async, call);
    EXPECT_EQ(returned.wait_for(50ms), std::future_status::timeout);
    gate.open();
    EXPECT_EQ(returned.wait_for(Limit), std::future_status::ready);
}

std::atomic<bool> terminalAsleep{false};
Journal* hookJournal = nullptr;
Gate* hookGate = nullptr;

bool noteAndWake() {
    hookJournal->add("hook");
    return terminalAsleep.exchange(false);
}

bool passHookGate() {
    hookGate->pass();
    return false;
}

class GuiLibraryTest : public testing::Test {
protected:
    void SetUp() override { startLoop(); }

    void TearDown() override {
        s_ovalis_set_idle_func(nullptr);
        GuiLibrary::quit();
        loop.join();
    }

    void startLoop() { loop = std::thread(GuiLibrary::run); }

    std::unique_ptr<Window> open(const string& name) {
        GuiLibrary::lock();
        auto window = std::make_unique<Window>(name, journal);
        GuiLibrary::unlock();
        return window;
    }

    std::vector<string> awaitEntries(size_t count) {
        EXPECT_TRUE(journal.await(count));
        return journal.take();
    }

    sim::Terminal terminal;
    Journal journal;
    std::thread loop;
};

TEST_F(GuiLibraryTest, TimerFiresEveryPeriodOnTheEventThreadUntilItIsStopped) {
    std::thread::id firedOn;
    Timer timer(5, [&] { firedOn = std::this_thread::get_id(); });
    const long long started = s_gettimeofday();
    ASSERT_TRUE(timer.startTimer());
    ASSERT_TRUE(timer.awaitRounds(4));
    EXPECT_GE(s_gettimeofday() - started, 20);
    EXPECT_TRUE(timer.stopTimer());
    EXPECT_EQ(firedOn, loop.get_id());

    const int rounds = timer.rounds;
    Timer witness(15);
    witness.startTimer();
    ASSERT_TRUE(witness.awaitRounds(2));
    EXPECT_EQ(timer.rounds, rounds);
    EXPECT_TRUE(timer.startTimer() && timer.awaitRounds(rounds + 1)) << "once more";
    EXPECT_FALSE(Timer(0).startTimer());
    GuiLibrary::lock();
    EXPECT_TRUE(witness.stopTimer()) << "by a holder of the lock too";
    GuiLibrary::unlock();
}

TEST_F(GuiLibraryTest, StoppingWaitsForTheCallbackInProgress) {
    Gate gate;
    Timer blocking(1, [&] {
        gate.pass();
        journal.add("ended");
    });
    Timer other(1);
    blocking.startTimer();
    other.startTimer();
    expectWaitsFor(gate, [&] {
        EXPECT_TRUE(other.stopTimer()) << "nothing of it is in progress: no wait";
        blocking.stopTimer();
        journal.add("stopped");
    });
    EXPECT_THAT(journal.take(), ElementsAre("ended", "stopped"));

    Gate atHook;
    hookGate = &atHook;
    s_ovalis_set_idle_func(passHookGate);
    GuiLibrary::postKey(1, true);
    expectWaitsFor(atHook, [] { s_ovalis_set_idle_func(nullptr); });
}

TEST_F(GuiLibraryTest, KeysGoToTheNewestWindowAfterTheIdleHook) {
    const auto older = open("older");
    auto newer = open("newer");
    hookJournal = &journal;
    s_ovalis_set_idle_func(noteAndWake);
    terminalAsleep = true;
    for (const bool down : {true, false, true, false})
        GuiLibrary::postKey(31, down);
    EXPECT_THAT(awaitEntries(6),
                ElementsAre("hook", "hook", "hook", "newer down 31", "hook", "newer up 31"))
        << "the key that wakes the terminal is swallowed with its up, the next one is not";

    GuiLibrary::postKey(32, true);
    EXPECT_THAT(awaitEntries(2), ElementsAre("hook", "newer down 32"));
    terminalAsleep = true;
    GuiLibrary::postKey(32, false);
    EXPECT_THAT(awaitEntries(2), ElementsAre("hook", "newer up 32"))
        << "a window that has seen a key go down sees it go up";

    s_ovalis_set_idle_func(nullptr);
    GuiLibrary::lock();
    newer.reset();
    GuiLibrary::unlock();
    GuiLibrary::postKey(33, true);
    EXPECT_THAT(awaitEntries(1), ElementsAre("older down 33"));
}

TEST_F(GuiLibraryTest, BroadcastWaitsForWhoeverHoldsTheLock) {
    const auto first = open("first");
    const auto second = open("second");
    GuiLibrary::lock();
    auto sent =
        std::async(std::launch::async, [] { GuiLibrary::broadcastSystemEvent(17, nullptr); });
    EXPECT_EQ(sent.wait_for(50ms), std::future_status::timeout);
    EXPECT_THAT(journal.take(), IsEmpty());
    GuiLibrary::unlock();
    sent.wait();
    EXPECT_THAT(journal.take(), ElementsAre("first event 17", "second event 17"));
}

TEST_F(GuiLibraryTest, WindowsComeAndGoInsideABroadcast) {
    auto first = open("first");
    const auto second = open("second");
    auto third = open("third");
    const auto fourth = open("fourth");
    std::unique_ptr<Window> fifth;
    second->eventAction = [&, caller = std::this_thread::get_id()] {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        first.reset();
        third.reset();
        if (!fifth)
            fifth = open("fifth");
    };
    Window* const suicidal = open("suicidal").release();
    suicidal->eventAction = [&] { delete suicidal; };

    GuiLibrary::broadcastSystemEvent(1, nullptr);
    EXPECT_THAT(journal.take(), ElementsAre("first event 1", "second event 1", "fourth event 1",
                                            "suicidal event 1"))
        << "neither the one destroyed before its turn nor the one created meanwhile";
    GuiLibrary::broadcastSystemEvent(2, nullptr);
    EXPECT_THAT(journal.take(), ElementsAre("second event 2", "fourth event 2", "fifth event 2"));
}

TEST_F(GuiLibraryTest, WindowTimersRunByIdUntilStoppedOrTheWindowGoes) {
    auto window = open("w");
    window->timerAction = [&](int id) {
        if (id == 7)
            window->stopTimer(7);
    };
    EXPECT_FALSE(window->startTimer(0, 9));
    EXPECT_TRUE(window->startTimer(1, 7));
    EXPECT_THAT(awaitEntries(1), ElementsAre("w timer 7"));
    EXPECT_TRUE(window->startTimer(5, 8));
    EXPECT_THAT(awaitEntries(3), Each("w timer 8"));

    std::atomic<bool> gone{false};
    GuiLibrary::lock();
    window->timerAction = [&](int) {
        std::atomic<bool>& signal = gone;  // the closure goes with the window
        window.reset();
        signal = true;
    };
    GuiLibrary::unlock();
    ASSERT_TRUE(eventually([&] { return gone.load(); }));
    journal.take();
    Timer witness(15);
    witness.startTimer();
    ASSERT_TRUE(witness.awaitRounds(1));
    EXPECT_THAT(journal.take(), IsEmpty());
}

TEST_F(GuiLibraryTest, LockIsRecursiveAndItsTimedAttemptEnds) {
    const auto tryFor = [](int ms) {
        return std::async(std::launch::async, [ms] {
            const bool taken = GuiLibrary::timedlock(ms);
            if (taken)
                GuiLibrary::unlock();
            return taken;
        });
    };
    GuiLibrary::lock();
    EXPECT_TRUE(GuiLibrary::timedlock(1000));
    GuiLibrary::unlock();

    const long long started = s_gettimeofday();
    EXPECT_FALSE(tryFor(1050).get());
    EXPECT_GE(s_gettimeofday() - started, 1045);
    EXPECT_FALSE(tryFor(-1000).get());

    auto waiting = tryFor(60'000);
    EXPECT_EQ(waiting.wait_for(20ms), std::future_status::timeout);
    GuiLibrary::unlock();
    EXPECT_TRUE(waiting.get());
}

}  // namespace
