// A child of the process that made the terminal. It has one thread and the parent's memory as it
// was: no lock may be held by a thread that it lacks, and what it has inherited open is not its own
// to model.

#include <pthread.h>
#include <unistd.h>

#include <mutex>
#include <vector>

#include "sim/posix/Descriptors.h"
#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

namespace {

// Of a thread, since several may fork at the same time.
thread_local std::vector<std::unique_lock<std::mutex>> heldForFork;

void beforeFork() {
    if (sim::Terminal* const terminal = sim::Terminal::current())
        heldForFork = terminal->holdForFork();
    heldForFork.push_back(sim::Descriptors::get().hold());
    heldForFork.push_back(sim::Clock::get().hold());
}

void inParent() { heldForFork.clear(); }

void inChild() {
    sim::Descriptors::get().disown();
    heldForFork.clear();
}

[[maybe_unused]] const int registered = pthread_atfork(beforeFork, inParent, inChild);

}  // namespace

extern "C" {

pid_t fork() noexcept { return sim::failsByFault("fork") ? -1 : SIM_REAL(fork)(); }

/// A child that shares the memory would change the parent's descriptors.
pid_t vfork() noexcept { return fork(); }

}  // extern "C"
