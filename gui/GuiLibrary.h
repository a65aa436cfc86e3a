#pragma once

/// The windowing library's global lock, event loop and system events.
///
/// One thread, the event thread, is inside run(); it holds the lock while it calls into the
/// application (timers, keys, the idle hook). Every other operation may come from any thread.
class GuiLibrary {
public:
    /// Takes the lock, waiting for ever. It is recursive: a thread unlocks as often as it has
    /// locked.
    static void lock();

    /// Takes the lock unless that takes longer than `ms` milliseconds of wall-clock time (0 or
    /// less: only tries). False on time-out.
    static bool timedlock(int ms);

    /// Gives one lock() or timedlock() back.
    static void unlock();

    /// Calls onSystemEvent(code, data) of every live window, oldest first, on the calling thread
    /// and under the lock. All have been called when it returns, so `data` may point to the
    /// caller's stack.
    static void broadcastSystemEvent(int code, void* data);

    /// Dispatches events on the calling thread until quit(). Reads the keypad device if there is
    /// one; sleeps without waking up while there is neither a key nor a due timer.
    static void run();

    /// Ends run() after the callback in progress. Asked before run(), that returns at once.
    static void quit();

    /// Queues a key event (Linux key code) for the newest window.
    static void postKey(int key, bool down);
};

/// Milliseconds of a clock that is never set and stands still while the terminal is suspended.
long long s_gettimeofday();

/// Sets the function called on the event thread for every key event before it is dispatched; null
/// removes it. When it returns true for a key going down, it has used that key (to wake the
/// terminal): neither its down nor its up is dispatched. Waits for the callback in progress, so
/// that the former function is not running any more when this returns.
void s_ovalis_set_idle_func(bool (*hook)());
