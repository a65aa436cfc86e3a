#include "Interruption.h"

#include <semaphore.h>

#include <atomic>
#include <cerrno>
#include <csignal>

#include "gui/GuiLibrary.h"

namespace ctl {
namespace {

// The last one says that nobody reads what is shown: each further line brings another one.
constexpr int Signals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

sem_t wakeUps;
std::atomic<bool> requested{false};
std::atomic<bool> asked{false};  // by another signal than that of the reader
std::atomic<bool> ending{false};

void requestEnd(int number) {
    if (number != SIGPIPE && asked.exchange(true)) {
        signal(number, SIG_DFL);
        raise(number);  // takes effect when this handler returns
        return;
    }
    const int before = errno;
    requested = true;
    sem_post(&wakeUps);  // of the few calls that a handler may make
    errno = before;
}

void watch() {
    while (!ending) {
        if (sem_wait(&wakeUps) == 0 && requested)
            GuiLibrary::quit();
    }
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN)
        return;
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
}

}  // namespace

Interruption::Interruption() {
    sem_init(&wakeUps, 0, 0);
    for (const int signal : Signals)
        handle(signal, requestEnd);
    watcher = std::thread(watch);
}

Interruption::~Interruption() {
    for (const int signal : Signals)
        handle(signal, SIG_DFL);
    ending = true;
    sem_post(&wakeUps);
    watcher.join();
    sem_destroy(&wakeUps);
}

bool Interruption::isRequested() { return requested; }

}  // namespace ctl
