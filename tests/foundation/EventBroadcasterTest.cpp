#include "foundation/EventBroadcaster.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <string>

#include "foundation/PowerEventListener.h"
#include "foundation/Worker.h"
#include "support/Eventually.h"
#include "support/Resources.h"

namespace {

using std::string;
using test::soon;
using test::Worker;

/// Announces changes in the order that their direction asks for.
struct Announcer : EventBroadcaster<PowerEventListener> {
    bool announce(PowerState from, PowerState to) {
        const auto tell = [&](PowerEventListener& listener) {
            return listener.powerStateChange(from, to);
        };
        return to < from ? notifyOldestFirst(tell) : notifyNewestFirst(tell);
    }
};

/// Writes its name into the common log, and agrees or not.
struct Listener final : PowerEventListener {
    Listener(char ownName, bool ownAnswer, string& commonLog)
        : name(ownName), answer(ownAnswer), log(commonLog) {}

    bool powerStateChange(PowerState from, PowerState to) override {
        log += name;
        lastChange = from * 10 + to;
        return answer;
    }

    const char name;
    const bool answer;
    string& log;
    int lastChange = -1;
};

TEST(EventBroadcasterTest, AsksInTheOrderOfTheDirectionUntilOneRefuses) {
    constexpr PowerState Dim[] = {POWER_ON, POWER_DIMMED};
    constexpr PowerState Same[] = {POWER_DARK, POWER_DARK};
    constexpr PowerState Wake[] = {POWER_DARK, POWER_ON};
    const struct {
        const char* added;    // letters are listeners, capitals refuse, '-' is a null entry
        const char* removed;  // 'z' was never added
        const PowerState (&change)[2];
        const char* asked;
        bool isAgreed;
    } cases[] = {{"", "z", Wake, "", true},        {"abc", "", Same, "cba", true},
                 {"aBc", "", Dim, "cB", false},    {"aBc", "", Wake, "aB", false},
                 {"abC", "", Wake, "abC", false},  {"aab", "", Wake, "aab", true},
                 {"abac", "a", Wake, "bac", true}, {"abac", "aa", Dim, "cb", true},
                 {"abc", "cab", Dim, "", true},    {"a-C", "", Wake, "a", true},
                 {"A-c", "", Dim, "c", true},      {"a-b", "-", Dim, "ba", true},
                 {"aBc", "B", Dim, "ca", true},    {"abc", "c", Wake, "ab", true}};
    for (const auto& [added, removed, change, asked, isAgreed] : cases) {
        SCOPED_TRACE(string(added) + " without '" + removed + "', to " + std::to_string(change[1]));
        string log;
        std::map<char, Listener> listeners;
        const auto named = [&](char name) -> Listener* {
            const bool answer = name >= 'a';
            return name == '-' ? nullptr
                               : &listeners.try_emplace(name, name, answer, log).first->second;
        };
        Announcer announcer;
        for (const char name : string(added))
            announcer.addListener(named(name));
        for (const char name : string(removed))
            announcer.removeListener(named(name));
        for (int round = 0; round < 2; ++round) {  // a walk leaves nothing behind
            log.clear();
            EXPECT_EQ(announcer.announce(change[0], change[1]), isAgreed);
            EXPECT_EQ(log, asked);
        }
        for (const char name : log)
            EXPECT_EQ(named(name)->lastChange, change[0] * 10 + change[1]);
    }
}

TEST(EventBroadcasterTest, AnAnnouncerThatIsCancelledInAListenerLetsTheListGo) {
    struct Blocked final : PowerEventListener {
        std::atomic<bool> isAsked{false};
        bool powerStateChange(PowerState, PowerState) override {
            isAsked = true;
            return test::Pipe().readByte() > 0;
        }
    };
    Announcer announcer;
    Blocked blocked;
    announcer.addListener(&blocked);
    Worker worker([&](Worker&) { announcer.announce(POWER_ON, POWER_SUSPEND); });
    EXPECT_TRUE(worker.start());
    ASSERT_TRUE(soon([&] { return blocked.isAsked.load(); }));
    EXPECT_TRUE(worker.terminate());

    string log;
    Listener next('n', true, log);
    announcer.removeListener(&blocked);
    announcer.addListener(&next);
    EXPECT_TRUE(announcer.announce(POWER_SUSPEND, POWER_ON));
    EXPECT_EQ(log, "n");
}

}  // namespace
