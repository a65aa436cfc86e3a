#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "sim/Device.h"
#include "sim/Journal.h"

namespace sim {

/// An event device: a keypad that sends key records, or a speaker that takes tone records, of the
/// 16 bytes that the terminal's 32-bit kernel uses. Each open has a queue of its own.
class InputDevice : public Device {
public:
    /// `eventTypes` has one bit for each type of event the device knows.
    InputDevice(std::string name, Journal& journal, uint32_t eventTypes);

    /// A key goes down or up, or any other event.
    void key(int code, bool down);
    void event(int type, int code, int value);

    /// What EVIOCGBIT tells from now on.
    void setEventTypes(uint32_t types);

    std::shared_ptr<OpenFile> open(const std::string& path, int flags) override;
    ssize_t write(const void* data, size_t size) override;
    int ioctl(unsigned long request, void* argument) override;

private:
    friend class InputFile;

    const std::string name;
    Journal& journal;

    std::mutex mutex;  // guards what follows, and the queues of the opens
    uint32_t eventTypes;
    std::vector<std::weak_ptr<class InputFile>> opens;
};

}  // namespace sim
