#include "foundation/Cond.h"

#include "foundation/Deadline.h"

Cond::~Cond() {
    // Held or not: after this the unlock is in order.
    static_cast<void>(pthread_mutex_trylock(&mutex));
    unlock();
    pthread_mutex_destroy(&mutex);
    pthread_cond_destroy(&condition);
}

bool Cond::wait() { return pthread_cond_wait(&condition, &mutex) == 0; }

bool Cond::wait(int timeoutMs) {
    const timespec deadline = foundation::deadlineAfter(timeoutMs);
    return pthread_cond_timedwait(&condition, &mutex, &deadline) == 0;
}
