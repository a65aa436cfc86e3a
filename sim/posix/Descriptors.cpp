#include "sim/posix/Descriptors.h"

#include <unistd.h>

#include <cerrno>
#include <vector>

#include "sim/posix/Real.h"

namespace sim {

Descriptors& Descriptors::get() {
    static auto* const descriptors = new Descriptors;
    return *descriptors;
}

int Descriptors::add(const std::shared_ptr<OpenFile>& file) {
    const int descriptor = file->descriptor();
    if (descriptor < 0)
        return -1;
    if (descriptor >= Most) {
        file->closing();
        SIM_REAL(close)(descriptor);
        return failWith(EMFILE);
    }
    const std::lock_guard<std::mutex> held(mutex);
    files[descriptor] = file;
    taken[static_cast<size_t>(descriptor)] = true;
    return descriptor;
}

std::shared_ptr<OpenFile> Descriptors::find(int descriptor) {
    if (!has(descriptor))
        return nullptr;
    const std::lock_guard<std::mutex> held(mutex);
    const auto found = files.find(descriptor);
    return found == files.end() ? nullptr : found->second;
}

std::shared_ptr<OpenFile> Descriptors::take(int descriptor) {
    if (!has(descriptor))
        return nullptr;
    std::shared_ptr<OpenFile> file;
    {
        const std::lock_guard<std::mutex> held(mutex);
        const auto found = files.find(descriptor);
        if (found == files.end())
            return nullptr;
        file = std::move(found->second);
        files.erase(found);
        taken[static_cast<size_t>(descriptor)] = false;
        for (const auto& other : files) {
            if (other.second == file) {
                file->moveTo(other.first);
                return file;
            }
        }
    }
    file->closing();
    return file;
}

int Descriptors::duplicate(int from, int to) {
    const auto file = to >= 0 ? find(from) : nullptr;
    if (!file)
        return to;
    if (to >= Most) {
        SIM_REAL(close)(to);
        return failWith(EMFILE);
    }
    const std::lock_guard<std::mutex> held(mutex);
    files[to] = file;
    taken[static_cast<size_t>(to)] = true;
    return to;
}

int Descriptors::keep(int descriptor) {
    if (descriptor >= 0 && descriptor < Most)
        kept[static_cast<size_t>(descriptor)] = true;
    return descriptor;
}

void Descriptors::closeKept(int descriptor) {
    if (descriptor >= 0 && descriptor < Most)
        kept[static_cast<size_t>(descriptor)] = false;
    SIM_REAL(close)(descriptor);
}

void Descriptors::disown() {
    files.clear();
    for (auto* const table : {&taken, &kept}) {
        for (auto& mark : *table)
            mark = false;
    }
}

void Descriptors::forgetAll() {
    std::vector<int> open;
    {
        const std::lock_guard<std::mutex> held(mutex);
        for (const auto& file : files)
            open.push_back(file.first);
    }
    for (const int descriptor : open)
        take(descriptor);
}

}  // namespace sim
