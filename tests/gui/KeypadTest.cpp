#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "gui/GuiLibrary.h"
#include "gui/GuiWindow.h"
#include "sim/Terminal.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

/// Collects the keys it gets: positive going down, negative going up.
class KeyWindow : public GuiWindow {
public:
    KeyWindow() : GuiWindow(0) {}

    bool onKeyDown(int key) override { return add(key); }
    bool onKeyUp(int key) override { return add(-key); }

    std::vector<int> await(size_t count) {
        std::unique_lock<std::mutex> held(mutex);
        changed.wait_for(held, 20s, [&] { return keys.size() >= count; });
        return std::exchange(keys, {});
    }

private:
    bool add(int key) {
        const std::lock_guard<std::mutex> held(mutex);
        keys.push_back(key);
        changed.notify_all();
        return true;
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<int> keys;
};

class KeypadTest : public testing::Test {
protected:
    ~KeypadTest() override {
        GuiLibrary::quit();
        loop.join();
    }

    /// Starts the loop and waits until it dispatches: the keypad is open then.
    void startLoop() {
        loop = std::thread(GuiLibrary::run);
        GuiLibrary::postKey(1, true);
        EXPECT_THAT(window.await(1), ElementsAre(1));
    }

    sim::Terminal terminal;
    KeyWindow window;
    std::thread loop;
};

TEST_F(KeypadTest, KeysOfTheDeviceReachTheWindow) {
    constexpr int Synchronization = 0;
    constexpr int Key = 1;
    constexpr int Repeated = 2;
    startLoop();
    terminal.keypad().key(30, true);
    terminal.keypad().event(Key, 30, Repeated);
    terminal.keypad().event(Synchronization, 0, 0);
    terminal.keypad().key(30, false);
    EXPECT_THAT(window.await(2), ElementsAre(30, -30));

    std::vector<int> typed;
    for (int key = 2; key < 102; ++key) {
        terminal.keypad().key(key, true);
        terminal.keypad().key(key, false);
        typed.insert(typed.end(), {key, -key});
    }
    std::vector<int> seen;
    while (seen.size() < typed.size()) {
        const std::vector<int> next = window.await(1);
        ASSERT_FALSE(next.empty());
        seen.insert(seen.end(), next.begin(), next.end());
    }
    EXPECT_EQ(seen, typed);
}

TEST_F(KeypadTest, LoopRunsWithoutTheDevice) {
    terminal.setPresent("/dev/input/event0", false);
    startLoop();
    GuiLibrary::postKey(2, true);
    EXPECT_THAT(window.await(1), ElementsAre(2));
}

}  // namespace
