#pragma once

#include <pthread.h>

#include <csignal>

namespace sim {

/// Blocks every signal for the length of a scope. A thread that is started meanwhile keeps them
/// blocked: the application's signals are for its own threads to take.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

private:
    sigset_t before{};
};

}  // namespace sim
