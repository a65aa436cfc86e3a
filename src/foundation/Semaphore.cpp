#include "foundation/Semaphore.h"

#include "foundation/Mutex.h"

bool Semaphore::pend() {
    LockGuard<Cond> guard(event);
    return event.wait();
}

bool Semaphore::pend(int timeoutMs) {
    LockGuard<Cond> guard(event);
    return event.wait(timeoutMs);
}

void Semaphore::post() {
    LockGuard<Cond> guard(event);
    event.signal();
}
