#include "gui/EventLoop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "gui/Keypad.h"

namespace gui {

void TimerQueue::start(GuiTimer* timer, int periodMs) {
    std::lock_guard<std::mutex> held(mutex);
    running[timer] = {s_gettimeofday() + periodMs, periodMs};
}

void TimerQueue::stop(GuiTimer* timer) {
    {
        std::lock_guard<std::mutex> held(mutex);
        running.erase(timer);
        if (firing != timer)
            return;
    }
    // A callback runs under the library's lock: who gets the lock has seen the callback's end,
    // unless it is the callback itself.
    LibraryGuard callbackEnded;
    std::lock_guard<std::mutex> held(mutex);
    running.erase(timer);  // which the callback may have started again
}

int TimerQueue::timeUntilNext() {
    std::lock_guard<std::mutex> held(mutex);
    if (running.empty())
        return -1;
    const auto next =
        std::min_element(running.begin(), running.end(),
                         [](const auto& a, const auto& b) { return a.second.due < b.second.due; });
    return static_cast<int>(std::max(next->second.due - s_gettimeofday(), 0LL));
}

bool TimerQueue::fireNext(long long now) {
    LibraryGuard library;
    GuiTimer* timer = nullptr;
    {
        std::lock_guard<std::mutex> held(mutex);
        const auto next =
            std::min_element(running.begin(), running.end(), [](const auto& a, const auto& b) {
                return a.second.due < b.second.due;
            });
        if (next == running.end() || next->second.due > now)
            return false;
        Schedule& schedule = next->second;
        schedule.due += schedule.period;
        if (schedule.due <= now)
            schedule.due = now + schedule.period;
        firing = timer = next->first;
    }
    timer->onTimer();  // may stop or destroy the timer
    std::lock_guard<std::mutex> held(mutex);
    firing = nullptr;
    return true;
}

EventLoop& EventLoop::instance() {
    static EventLoop& loop = *new EventLoop;
    return loop;
}

EventLoop::EventLoop() : wakeDescriptor(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

void EventLoop::run() {
    Keypad keypad;
    while (!quitRequested.exchange(false)) {
        pollfd sources[] = {{wakeDescriptor, POLLIN, 0}, {keypad.descriptor(), POLLIN, 0}};
        ::poll(sources, 2, timers.timeUntilNext());
        uint64_t wakes = 0;
        while (::read(wakeDescriptor, &wakes, sizeof wakes) > 0) {}
        if (sources[1].revents != 0)
            keypad.readKeys();
        for (KeyEvent event{}; !quitRequested && nextKey(event);)
            dispatch(event);
        const long long now = s_gettimeofday();
        while (!quitRequested && timers.fireNext(now)) {}
    }
}

void EventLoop::quit() {
    quitRequested = true;
    wake();
}

void EventLoop::postKey(int key, bool down) {
    {
        std::lock_guard<std::mutex> held(keyMutex);
        keys.push_back({key, down});
    }
    wake();
}

void EventLoop::wake() {
    const uint64_t one = 1;
    // It only fails with the counter full, and then the loop wakes up anyway.
    [[maybe_unused]] const ssize_t written = ::write(wakeDescriptor, &one, sizeof one);
}

void EventLoop::setIdleHook(bool (*hook)()) {
    LibraryGuard library;
    idleHook = hook;
}

bool EventLoop::nextKey(KeyEvent& event) {
    std::lock_guard<std::mutex> held(keyMutex);
    if (keys.empty())
        return false;
    event = keys.front();
    keys.pop_front();
    return true;
}

void EventLoop::dispatch(const KeyEvent& event) {
    LibraryGuard library;
    const bool used = idleHook && idleHook();
    if (event.down && used) {
        swallowedKeys.insert(event.key);
        return;
    }
    // An up follows its down: a window that has seen a key go down also sees it go up.
    const bool downSwallowed = swallowedKeys.erase(event.key) > 0;
    if ((!event.down && downSwallowed) || windows.empty())
        return;
    GuiWindow* const newest = windows.rbegin()->second;
    if (event.down)
        newest->onKeyDown(event.key);
    else
        newest->onKeyUp(event.key);
}

unsigned long EventLoop::addWindow(GuiWindow* window) {
    LibraryGuard library;
    windows.emplace(++lastSerial, window);
    return lastSerial;
}

void EventLoop::removeWindow(unsigned long serial) {
    LibraryGuard library;
    windows.erase(serial);
}

void EventLoop::broadcast(int code, void* data) {
    LibraryGuard library;
    // Looked up anew after each call, which may have created and destroyed windows. A window
    // created meanwhile is not told.
    const unsigned long newest = lastSerial;
    for (auto window = windows.begin(); window != windows.end() && window->first <= newest;) {
        const unsigned long serial = window->first;
        window->second->onSystemEvent(code, data);
        window = windows.upper_bound(serial);
    }
}

}  // namespace gui
