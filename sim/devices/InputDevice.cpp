#include "sim/devices/InputDevice.h"

#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "power/BoardProtocol.h"
#include "sim/Clock.h"
#include "sim/posix/Real.h"

namespace sim {

/// One open of an event device, with the records it has not read yet, which the device's lock
/// guards.
class InputFile : public ModelFile {
public:
    InputFile(const std::string& path, int flags, std::shared_ptr<InputDevice> openedInput)
        : ModelFile(path, flags, openedInput), input(std::move(openedInput)) {}

    /// Waits for a record, unless the open is a non-blocking one.
    ssize_t read(void* buffer, size_t size) override {
        if (size < sizeof(board::InputEvent))
            return failWith(EINVAL);
        for (;;) {
            if (const size_t used = takeRecords(static_cast<char*>(buffer), size))
                return static_cast<ssize_t>(used);
            pollfd file{descriptor(), POLLIN, 0};
            if (SIM_REAL(fcntl)(file.fd, F_GETFL) & O_NONBLOCK)
                return failWith(EAGAIN);
            if (SIM_REAL(poll)(&file, 1, -1) < 0)
                return -1;
        }
    }

    void add(const board::InputEvent& event) {
        constexpr size_t QueueSize = 256;  // more than this is lost, as in the kernel
        if (queue.size() < QueueSize)
            queue.push_back(event);
        setReadable(true);
    }

private:
    size_t takeRecords(char* buffer, size_t size) {
        const std::lock_guard<std::mutex> held(input->mutex);
        size_t used = 0;
        for (; !queue.empty() && size - used >= sizeof(board::InputEvent);
             used += sizeof(board::InputEvent)) {
            memcpy(buffer + used, &queue.front(), sizeof(board::InputEvent));
            queue.pop_front();
        }
        setReadable(!queue.empty());
        return used;
    }

    const std::shared_ptr<InputDevice> input;
    std::deque<board::InputEvent> queue;
};

InputDevice::InputDevice(std::string deviceName, Journal& eventJournal, uint32_t types)
    : name(std::move(deviceName)), journal(eventJournal), eventTypes(types) {}

void InputDevice::key(int code, bool down) {
    journal.note(name, "key " + std::to_string(code) + (down ? " down" : " up"));
    event(board::InputKey, code, down ? 1 : 0);
}

void InputDevice::event(int type, int code, int value) {
    board::InputEvent record{};
    record.type = static_cast<uint16_t>(type);
    record.code = static_cast<uint16_t>(code);
    record.value = value;
    const timespec now = toTimespec(Clock::get().wall());
    const uint32_t stamp[] = {static_cast<uint32_t>(now.tv_sec),
                              static_cast<uint32_t>(now.tv_nsec / 1000)};
    static_assert(sizeof stamp == sizeof record.time);
    memcpy(record.time, stamp, sizeof stamp);
    const std::lock_guard<std::mutex> held(mutex);
    for (const auto& open : opens) {
        if (const auto file = open.lock())
            file->add(record);
    }
}

void InputDevice::setEventTypes(uint32_t types) {
    const std::lock_guard<std::mutex> held(mutex);
    eventTypes = types;
}

std::shared_ptr<OpenFile> InputDevice::open(const std::string& path, int flags) {
    auto file = std::make_shared<InputFile>(
        path, flags, std::static_pointer_cast<InputDevice>(shared_from_this()));
    const std::lock_guard<std::mutex> held(mutex);
    opens.erase(
        std::remove_if(opens.begin(), opens.end(), [](const auto& open) { return open.expired(); }),
        opens.end());
    opens.push_back(file);
    return file;
}

ssize_t InputDevice::write(const void* data, size_t size) {
    board::InputEvent record{};
    if (size != sizeof record)
        return failWith(EINVAL);
    memcpy(&record, data, sizeof record);
    if (record.type == board::InputSound && record.code == board::SoundTone)
        journal.note(name, record.value ? "tone " + std::to_string(record.value) : "silence");
    return static_cast<ssize_t>(size);
}

int InputDevice::ioctl(unsigned long request, void* argument) {
    const std::lock_guard<std::mutex> held(mutex);
    if (request != board::GetEventTypes)
        return failWith(EINVAL);
    memcpy(argument, &eventTypes, sizeof eventTypes);
    return sizeof eventTypes;
}

}  // namespace sim
