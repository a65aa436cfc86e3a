#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <set>

#include "gui/GuiLibrary.h"
#include "gui/GuiTimer.h"
#include "gui/GuiWindow.h"

namespace gui {

/// Holds the library's lock for the length of a scope.
class LibraryGuard {
public:
    LibraryGuard() { GuiLibrary::lock(); }
    LibraryGuard(const LibraryGuard&) = delete;
    LibraryGuard& operator=(const LibraryGuard&) = delete;
    ~LibraryGuard() { GuiLibrary::unlock(); }
};

/// The running timers of the process.
class TimerQueue {
public:
    void start(GuiTimer* timer, int periodMs);
    void stop(GuiTimer* timer);

    /// Milliseconds until the next timer is due: a time-out for poll(), -1 when none runs.
    int timeUntilNext();

    /// Calls one timer that was due at `now`, on the clock of s_gettimeofday(). False when there is
    /// none. It is due again later than `now`, so each timer is called once before that. Event
    /// thread only.
    bool fireNext(long long now);

private:
    struct Schedule {
        long long due;  // on the clock of s_gettimeofday()
        int period;
    };

    std::mutex mutex;  // a leaf: nothing is called and no other lock taken under it
    std::map<GuiTimer*, Schedule> running;
    GuiTimer* firing = nullptr;  // its onTimer() is in progress, so the library's lock is held
};

/// What the static operations of the library stand for: the windows, the queue of keys and the loop
/// that dispatches them. One object per process, never destroyed: windows and timers with static
/// storage may outlive any other.
class EventLoop {
public:
    static EventLoop& instance();

    void run();
    void quit();
    void postKey(int key, bool down);

    /// Makes a waiting run() look again.
    void wake();

    void setIdleHook(bool (*hook)());

    unsigned long addWindow(GuiWindow* window);
    void removeWindow(unsigned long serial);
    void broadcast(int code, void* data);

    TimerQueue timers;

private:
    EventLoop();

    struct KeyEvent {
        int key;
        bool down;
    };

    bool nextKey(KeyEvent& event);
    void dispatch(const KeyEvent& event);

    int wakeDescriptor;
    std::atomic<bool> quitRequested{false};

    std::mutex keyMutex;
    std::deque<KeyEvent> keys;  // guarded by keyMutex

    // Guarded by the library's lock.
    std::map<unsigned long, GuiWindow*> windows;  // by order of creation
    unsigned long lastSerial = 0;
    bool (*idleHook)() = nullptr;
    std::set<int> swallowedKeys;  // went down unseen: their up is not dispatched either
};

}  // namespace gui
