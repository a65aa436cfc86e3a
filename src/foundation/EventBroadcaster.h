#pragma once

#include <list>

#include "foundation/Mutex.h"

/// A list of listeners under a lock: the base of whatever announces changes of its own.
///
/// Any thread may add, remove and notify. The listeners are not owned; each is removed before it is
/// destroyed. The lock is held for a whole walk, so a listener must not, from inside its call, add
/// or remove listeners of the same broadcaster, or make it notify again.
template <class Listener> class EventBroadcaster {
public:
    EventBroadcaster() = default;
    EventBroadcaster(const EventBroadcaster&) = delete;
    EventBroadcaster& operator=(const EventBroadcaster&) = delete;
    virtual ~EventBroadcaster() = default;

    /// Appends a listener. One that is added twice is called twice.
    void addListener(Listener* listener) {
        MutexGuard held(lock);
        listeners.push_back(listener);
    }

    /// Removes the first registration of a listener; an unknown one is ignored.
    void removeListener(Listener* listener) {
        MutexGuard held(lock);
        for (forward = listeners.begin(); forward != listeners.end(); ++forward) {
            if (*forward == listener) {
                forward = listeners.erase(forward);
                return;
            }
        }
    }

protected:
    /// Calls `tell(listener)` from the oldest listener to the newest, as long as it returns true.
    /// True when all have agreed; a null entry ends the walk as if they had.
    template <class Tell> bool notifyOldestFirst(Tell tell) {
        MutexGuard held(lock);
        for (auto at = listeners.begin(); at != listeners.end() && *at; ++at) {
            forward = at;
            if (!tell(**at))
                return false;
        }
        return true;
    }

    /// The same from the newest listener to the oldest.
    template <class Tell> bool notifyNewestFirst(Tell tell) {
        MutexGuard held(lock);
        for (auto at = listeners.end(); at != listeners.begin();) {
            reverse = --at;
            if (!*at)
                break;
            if (!tell(**at))
                return false;
        }
        return true;
    }

private:
    std::list<Listener*> listeners;  // oldest first
    Mutex lock;                      // guards the list and both cursors
    typename std::list<Listener*>::iterator forward = listeners.end();  // of the walk under way
    typename std::list<Listener*>::iterator reverse = listeners.begin();
};
