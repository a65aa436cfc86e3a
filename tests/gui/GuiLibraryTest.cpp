#include "gui/GuiLibrary.h"

#include "gui/GuiTimer.h"
#include "gui/GuiWindow.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using test::inBackground;
using test::soon;

struct Timer : GuiTimer {
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
    bool comesTo(int wanted) {
        return soon([&] { return rounds >= wanted; });
    }

    const std::function<void()> action;
    std::atomic<int> rounds{0};
};

/// Notes in the journal what reaches it: "gui: first down 31".
struct Window : GuiWindow {
    Window(string windowName, sim::Journal& terminalJournal)
        : GuiWindow(0), name(std::move(windowName)), journal(terminalJournal) {}

    bool onKeyDown(int key) override { return note(" down ", key); }
    bool onKeyUp(int key) override { return note(" up ", key); }
    void onTimer(int id) override { note(" timer ", id), timerAction(id); }
    void onSystemEvent(int code, void*) override { note(" event ", code), eventAction(); }

    bool note(const char* what, int number) {
        journal.note("gui", name + what + std::to_string(number));
        return true;
    }

    const string name;
    sim::Journal& journal;
    std::function<void(int)> timerAction = [](int) {};
    std::function<void()> eventAction = [] {};
};

/// A callback that stays in progress until it is let go.
struct Gate {
    void pass() {
        entered.set_value();
        opened.get_future().wait();
    }
    /// Expects that `call`, made on another thread, returns only once the callback has ended.
    void expectWaits(const std::function<void()>& call) {
        entered.get_future().wait();
        auto returned = inBackground(call);
        EXPECT_EQ(returned.wait_for(50ms), std::future_status::timeout);
        opened.set_value();
    }

    std::promise<void> entered, opened;
};

std::function<bool()> hook;  // of the idle function
bool runHook() { return hook(); }

struct GuiLibraryTest : test::TerminalTest {
    ~GuiLibraryTest() override {
        s_ovalis_set_idle_func(nullptr);
        GuiLibrary::quit();
        loop.join();
    }

    std::unique_ptr<Window> open(const string& name) {
        return std::make_unique<Window>(name, terminal.journal());
    }

    /// Waits for what windows and hook note.
    void expectNotes(const string& notes) {
        EXPECT_TRUE(soon([&] { return terminal.journal().history("gui").size() >= notes.size(); }));
        EXPECT_EQ(take("gui"), notes);
    }

    std::thread loop{GuiLibrary::run};
};

TEST_F(GuiLibraryTest, QuitEndsTheLoopAfterTheCallbackInProgress) {
    Gate gate;
    Timer busy(1, [&] {
        if (busy.rounds == 0)
            gate.pass();
    });
    Timer quitting(2, [] { GuiLibrary::quit(); });
    Timer late(3);
    busy.startTimer();
    gate.entered.get_future().wait();
    quitting.startTimer();
    late.startTimer();
    const long long started = s_gettimeofday();
    soon([&] { return s_gettimeofday() > started + 3; });
    gate.opened.set_value();
    loop.join();
    EXPECT_EQ(quitting.rounds, 1);
    EXPECT_EQ(late.rounds, 0) << "a timer that was due in the same round still fired";
    loop = std::thread(GuiLibrary::run);
}

TEST_F(GuiLibraryTest, TimerFiresEveryPeriodOnTheEventThreadUntilItIsStopped) {
    std::thread::id firedOn;
    Timer timer(5, [&] { firedOn = std::this_thread::get_id(); });
    const long long started = s_gettimeofday();
    ASSERT_TRUE(timer.startTimer() && timer.comesTo(4));
    EXPECT_GE(s_gettimeofday() - started, 20);
    EXPECT_TRUE(timer.stopTimer());
    EXPECT_EQ(firedOn, loop.get_id());

    const int rounds = timer.rounds;
    Timer witness(15);
    ASSERT_TRUE(witness.startTimer() && witness.comesTo(2));
    EXPECT_EQ(timer.rounds, rounds);
    EXPECT_TRUE(timer.startTimer() && timer.comesTo(rounds + 1)) << "once more";
    EXPECT_FALSE(Timer(0).startTimer());
    GuiLibrary::lock();
    EXPECT_TRUE(witness.stopTimer()) << "by a holder of the lock too";
    GuiLibrary::unlock();
}

TEST_F(GuiLibraryTest, StoppingWaitsForTheCallbackInProgress) {
    Gate gate, atHook;
    Timer blocking(1, [&] {
        if (blocking.rounds > 0)
            return;  // the one that stops it came late
        gate.pass();
        terminal.journal().note("gui", "ended");
    });
    Timer other(1);
    blocking.startTimer();
    other.startTimer();
    gate.expectWaits([&] {
        EXPECT_TRUE(other.stopTimer()) << "nothing of it is in progress: no wait";
        blocking.stopTimer();
        terminal.journal().note("gui", "stopped");
    });
    EXPECT_EQ(take("gui"), "ended, stopped");

    hook = [&] { return atHook.pass(), false; };
    s_ovalis_set_idle_func(runHook);
    GuiLibrary::postKey(1, true);
    atHook.expectWaits([] { s_ovalis_set_idle_func(nullptr); });
}

TEST_F(GuiLibraryTest, KeysGoToTheNewestWindowAfterTheIdleHook) {
    const auto older = open("older");
    auto newer = open("newer");
    std::atomic<bool> isAsleep{true};
    hook = [&] { return terminal.journal().note("gui", "hook"), isAsleep.exchange(false); };
    s_ovalis_set_idle_func(runHook);
    for (const bool down : {true, false, true, false})
        GuiLibrary::postKey(31, down);
    // The key that wakes the terminal is swallowed with its up, the next one is not.
    expectNotes("hook, hook, hook, newer down 31, hook, newer up 31");
    GuiLibrary::postKey(32, true);
    expectNotes("hook, newer down 32");
    isAsleep = true;
    GuiLibrary::postKey(32, false);
    expectNotes("hook, newer up 32");  // whoever has seen a key go down sees it go up

    s_ovalis_set_idle_func(nullptr);
    GuiLibrary::lock();
    newer.reset();
    GuiLibrary::unlock();
    GuiLibrary::postKey(33, true);
    expectNotes("older down 33");
}

TEST_F(GuiLibraryTest, ABroadcastWaitsForTheLockAndWindowsComeAndGoInsideIt) {
    auto first = open("first");
    const auto second = open("second");
    GuiLibrary::lock();
    auto sent = inBackground([] { GuiLibrary::broadcastSystemEvent(17, nullptr); });
    EXPECT_EQ(sent.wait_for(50ms), std::future_status::timeout);
    EXPECT_EQ(take("gui"), "");
    GuiLibrary::unlock();
    sent.wait();
    EXPECT_EQ(take("gui"), "first event 17, second event 17");

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
    // Neither the one destroyed before its turn nor the one created meanwhile.
    EXPECT_EQ(take("gui"), "first event 1, second event 1, fourth event 1, suicidal event 1");
    GuiLibrary::broadcastSystemEvent(2, nullptr);
    EXPECT_EQ(take("gui"), "second event 2, fourth event 2, fifth event 2");
}

TEST_F(GuiLibraryTest, WindowTimersRunByIdUntilStoppedOrTheWindowGoes) {
    auto owner = open("w");
    owner->timerAction = [&](int id) {
        if (id == 7)
            owner->stopTimer(7);
    };
    EXPECT_FALSE(owner->startTimer(0, 9));
    EXPECT_TRUE(owner->startTimer(1, 7));
    expectNotes("w timer 7");
    EXPECT_TRUE(owner->startTimer(5, 8));
    EXPECT_TRUE(soon([&] {
        return terminal.journal().history("gui").rfind("w timer 8, w timer 8, w timer 8", 0) == 0;
    }));

    std::atomic<bool> gone{false};
    GuiLibrary::lock();
    owner->timerAction = [&](int) {
        std::atomic<bool>& signal = gone;  // the closure goes with the window
        owner.reset();
        signal = true;
    };
    GuiLibrary::unlock();
    ASSERT_TRUE(soon([&] { return gone.load(); }));
    take("gui");
    Timer witness(15);
    ASSERT_TRUE(witness.startTimer() && witness.comesTo(1));
    EXPECT_EQ(take("gui"), "");
}

TEST_F(GuiLibraryTest, LockIsRecursiveAndItsTimedAttemptEnds) {
    const auto tryFor = [](int ms) {
        return inBackground([ms] {
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
    GuiLibrary::unlock();
    EXPECT_TRUE(tryFor(60'000).get());
}

}  // namespace
