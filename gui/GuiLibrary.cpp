#include "gui/GuiLibrary.h"

#include <pthread.h>

#include <ctime>

#include "gui/EventLoop.h"

namespace {

constexpr long NanosecondsPerSecond = 1'000'000'000;

pthread_mutex_t libraryLock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

}  // namespace

void GuiLibrary::lock() { pthread_mutex_lock(&libraryLock); }

bool GuiLibrary::timedlock(int ms) {
    if (ms <= 0)
        return pthread_mutex_trylock(&libraryLock) == 0;
    timespec deadline{};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += ms / 1000;
    deadline.tv_nsec += ms % 1000 * 1'000'000L;
    if (deadline.tv_nsec >= NanosecondsPerSecond) {
        deadline.tv_nsec -= NanosecondsPerSecond;
        ++deadline.tv_sec;
    }
    return pthread_mutex_timedlock(&libraryLock, &deadline) == 0;
}

void GuiLibrary::unlock() { pthread_mutex_unlock(&libraryLock); }

void GuiLibrary::broadcastSystemEvent(int code, void* data) {
    gui::EventLoop::instance().broadcast(code, data);
}

void GuiLibrary::run() { gui::EventLoop::instance().run(); }

void GuiLibrary::quit() { gui::EventLoop::instance().quit(); }

void GuiLibrary::postKey(int key, bool down) { gui::EventLoop::instance().postKey(key, down); }

long long s_gettimeofday() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

void s_ovalis_set_idle_func(bool (*hook)()) { gui::EventLoop::instance().setIdleHook(hook); }
