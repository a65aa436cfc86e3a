#include <poll.h>

#include <csignal>
#include <ctime>

#include "sim/programs/Programs.h"

namespace program {
namespace {

volatile sig_atomic_t isEnding = 0;

void noteEnd(int) { isEnding = 1; }

}  // namespace

void holdEndingSignals() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGTERM, SIGINT}) {
        sigaddset(&ending, signal);
        struct sigaction action {};
        action.sa_handler = noteEnd;
        sigaction(signal, &action, nullptr);
    }
    sigprocmask(SIG_BLOCK, &ending, nullptr);
}

bool takeEndingSignal() {
    const bool wasEnding = isEnding;
    isEnding = 0;
    return wasEnding;
}

bool waitUnlessEnded(const Door& door, int descriptor, int timeoutMs) {
    pollfd files[] = {{door.descriptor(), POLLIN, 0}, {descriptor, POLLIN, 0}};
    const timespec timeout{timeoutMs / 1000, (timeoutMs % 1000) * 1'000'000L};
    sigset_t none;
    sigemptyset(&none);
    if (!isEnding)
        ppoll(files, 2, timeoutMs < 0 ? nullptr : &timeout, &none);
    return !isEnding && !files[0].revents;
}

}  // namespace program
