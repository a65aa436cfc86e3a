#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "sim/Device.h"

namespace sim {

/// The descriptors of this process that stand for something of the terminal. Asking for one that
/// does not takes no lock: every read and write of the program asks.
class Descriptors {
public:
    static Descriptors& get();

    /// The file's descriptor, or -1 with errno set when it has none.
    int add(const std::shared_ptr<OpenFile>& file);
    std::shared_ptr<OpenFile> find(int descriptor);

    /// Takes a descriptor that is about to be closed out of the table. Null if it is not there.
    std::shared_ptr<OpenFile> take(int descriptor);

    /// The descriptor `to` has become one more for what `from` stands for. `to`, or -1 with errno
    /// set when there is no room for it.
    int duplicate(int from, int to);

    /// A descriptor of the simulator's own, which the program can neither close nor replace.
    int keep(int descriptor);
    void closeKept(int descriptor);
    bool isKept(int descriptor) const {
        return descriptor >= 0 && descriptor < Most && kept[static_cast<size_t>(descriptor)];
    }

    /// Whoever changes the table holds this.
    std::unique_lock<std::mutex> hold() { return std::unique_lock<std::mutex>(mutex); }

    /// In a child, whose descriptors are not the model's any more; with the lock held.
    void disown();

    /// The terminal is going: what is still open is left to the host.
    void forgetAll();

    bool has(int descriptor) const {
        return descriptor >= 0 && descriptor < Most && taken[static_cast<size_t>(descriptor)];
    }

    static constexpr int Most = 4096;  ///< those above are not looked after

private:
    std::array<std::atomic<bool>, Most> taken{}, kept{};
    std::mutex mutex;
    std::unordered_map<int, std::shared_ptr<OpenFile>> files;  // guarded by mutex
};

}  // namespace sim
