#pragma once

#include <cstdint>

#include "foundation/Thread.h"

/// The system events that the library broadcasts, and the windowing library's lock for its senders.
namespace events {

/// Codes of GuiLibrary::broadcastSystemEvent(), with what their data is. A number travels in the
/// pointer itself.
enum SystemEvent : int {
    StatusText = 1,          // const char*
    ErrorText = 2,           // const char*
    SignalQuality = 3,       // number, percent; -28 upwards of a Bluetooth link
    NetworkStateChange = 4,  // number, a NetworkEvent
    BatteryCapacity = 16,    // number, percent
    BatteryEmpty = 17,       // 0; follows a capacity of 0
    ShutdownRequest = 31,    // null
    Temperature = 32,        // number; the most negative int when it cannot be read
    ScannedCode = 256        // ScanRecord*
};

/// A number as the data of a system event.
inline void* number(int value) {
    const auto carried = static_cast<intptr_t>(value);
    return reinterpret_cast<void*>(carried);  // NOLINT(performance-no-int-to-ptr): never followed
}

/// The number that travels as the data of a system event.
inline int numberIn(const void* data) { return static_cast<int>(reinterpret_cast<intptr_t>(data)); }

/// Holds the windowing library's lock for the length of a scope.
class WindowingGuard {
public:
    WindowingGuard();
    WindowingGuard(const WindowingGuard&) = delete;
    WindowingGuard& operator=(const WindowingGuard&) = delete;
    ~WindowingGuard();
};

/// The same for a worker, which must be stoppable while it waits: takes the lock in attempts of one
/// second and gives up when the worker is asked to stop, or cancelled, between two of them. The
/// caller holds no lock of the library and tests isHeld() before it sends.
class WorkerWindowingGuard {
public:
    /// `worker` is the calling thread's.
    explicit WorkerWindowingGuard(Thread& worker);
    WorkerWindowingGuard(const WorkerWindowingGuard&) = delete;
    WorkerWindowingGuard& operator=(const WorkerWindowingGuard&) = delete;
    ~WorkerWindowingGuard();

    /// Whether the lock was taken.
    bool isHeld() const { return held; }

private:
    bool held;
};

}  // namespace events
