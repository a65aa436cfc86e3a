#pragma once

// What the tests on a terminal have in common. The headers of the standard library that nearly all
// of them use come with it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "gui/GuiLibrary.h"
#include "gui/GuiWindow.h"
#include "power/PowerManager.h"
#include "power/SystemEvents.h"
#include "scanner/ScanRecord.h"
#include "sim/Terminal.h"
#include "support/Eventually.h"

namespace test {

using namespace std::chrono_literals;

/// A function on a thread of its own; the destructor of what it returns waits for its end.
template <class Function> auto inBackground(Function function) {
    const sim::HostTime hostTime;  // no call of the application
    return std::async(std::launch::async, std::move(function));
}

template <class Result> bool isDone(const std::future<Result>& result) {
    const sim::HostTime hostTime;
    return result.wait_for(0s) == std::future_status::ready;
}

/// What a descriptor gives, up to a size, until nothing comes for a while of the host's time.
inline std::string readFrom(int fd, size_t size, std::chrono::milliseconds limit = 20s) {
    const sim::HostTime hostTime;
    std::string text(size, '\0');
    size_t got = 0;
    pollfd file{fd, POLLIN, 0};
    while (got<size&& ::poll(&file, 1, static_cast<int>(limit.count()))> 0) {
        const ssize_t count = ::read(fd, &text[got], size - got);
        if (count <= 0)
            break;
        got += static_cast<size_t>(count);
    }
    return text.substr(0, got);
}

/// The windowing library's event thread for the length of a scope.
class EventThread {
public:
    EventThread() : thread([] { GuiLibrary::run(); }) {}
    ~EventThread() {
        GuiLibrary::quit();
        thread.join();
    }

private:
    std::thread thread;
};

/// A window that notes what reaches it in the terminal's journal: "app: event 16 87",
/// "app: scan 4006381333931", "app: key 28" and, of a tag, "tag: SOURCE ID DATA".
class NotingWindow : public GuiWindow {
public:
    explicit NotingWindow(sim::Journal& terminalJournal) : GuiWindow(0), journal(terminalJournal) {}

    bool onKeyDown(int key) override {
        journal.note("app", "key " + std::to_string(key));
        if (onKey)
            onKey();
        return true;
    }

    void onSystemEvent(int code, void* data) override {
        if (code == 256) {
            const ScanRecord& record = *static_cast<ScanRecord*>(data);
            const std::string text =
                (record.reserved == 0 ? "" : "odd ") + std::string(record.data);
            if (record.source == 0)
                journal.note("app", (record.id ? "odd scan " : "scan ") + text);
            else
                journal.note("tag", std::to_string(record.source) + " " + record.id + " " + text);
            if (onScan)
                onScan();
            return;
        }
        if (code < 16)
            return;  // a link's: what it tells is a text or more
        const int number = events::numberIn(data);
        journal.note("app", "event " + std::to_string(code) + " " + std::to_string(number));
    }

    std::function<void()> onKey, onScan;

private:
    sim::Journal& journal;
};

/// A test on a terminal of its own.
struct TerminalTest : testing::Test {
    /// Waits until a line that contains `text` is in the journal; false when none comes.
    bool await(const std::string& text) {
        return terminal.journal().await(text, 0, HostLimit) != 0;
    }

    /// What the journal has noted since the last call.
    std::vector<std::string> takeLines() {
        auto lines = terminal.journal().lines();
        terminal.journal().clear();
        return lines;
    }

    /// The same of one device, joined with ", ".
    std::string take(const std::string& device) {
        auto history = terminal.journal().history(device);
        terminal.journal().clear();
        return history;
    }

    /// The simulated time from the first note of one line to the next note of the other.
    std::chrono::nanoseconds between(const std::string& from, const std::string& to) {
        std::chrono::nanoseconds begin{0};
        for (const auto& entry : terminal.journal().entries()) {
            const std::string line = entry.device + ": " + entry.text;
            if (begin == 0ns && line == from)
                begin = entry.wall;
            else if (begin != 0ns && line == to)
                return entry.wall - begin;
        }
        return 0ns;
    }

    /// The simulated time that an action takes.
    template <class Action> std::chrono::nanoseconds simulated(Action action) {
        const auto begin = terminal.clock().monotonic();
        action();
        return terminal.clock().monotonic() - begin;
    }

    /// Time passes, at once.
    void pass(std::chrono::milliseconds duration) {
        sim::Clock& clock = terminal.clock();
        clock.setMonotonic(clock.monotonic() + duration);
        clock.setWall(clock.wall() + duration);
    }

    sim::Terminal terminal;
    NotingWindow window{terminal.journal()};
};

/// ... with a power manager, whose start has left no trace in the journal.
struct PoweredTest : TerminalTest {
    PoweredTest() { start(); }
    ~PoweredTest() override { PowerManager::deinitPowerManager(); }

    void start() {
        EXPECT_TRUE(PowerManager::initPowerManager());
        terminal.journal().clear();
    }

    void restart() {
        EXPECT_TRUE(PowerManager::deinitPowerManager());
        start();
    }

    /// Restarts on clocks that only pass() advances: no busy machine adds to them.
    void holdTime() {
        constexpr auto Now = 1700000000s;
        terminal.clock().setMonotonic(1000s);
        terminal.clock().setWall(Now);
        terminal.clock().setSpeed(1e-6);
        restart();
        EXPECT_TRUE(power().rtcSetTime(Now.count()));  // their seconds begin together
        terminal.journal().clear();
    }

    static PowerManager& power() { return *PowerManager::getPowerManager(); }
};

}  // namespace test
