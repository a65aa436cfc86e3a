#include "gui/Keypad.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "gui/GuiLibrary.h"

namespace {

constexpr char DevicePath[] = "/dev/input/event0";

// The input event record of a 32-bit kernel.
struct InputRecord {
    unsigned char time[8];
    uint16_t type;
    uint16_t code;
    int32_t value;
};

constexpr uint16_t TypeKey = 1;
enum KeyValue : int32_t { KeyReleased = 0, KeyPressed = 1 /* 2: repeated */ };

}  // namespace

namespace gui {

Keypad::Keypad() : fd(::open(DevicePath, O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    static_assert(sizeof(InputRecord) == RecordSize);
}

Keypad::~Keypad() { close(); }

void Keypad::close() {
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

void Keypad::readKeys() {
    const ssize_t count = ::read(fd, buffer.data() + filled, buffer.size() - filled);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (count <= 0) {
        close();
        return;
    }
    filled += static_cast<size_t>(count);
    size_t used = 0;
    for (; filled - used >= RecordSize; used += RecordSize)
        post(buffer.data() + used);
    std::memmove(buffer.data(), buffer.data() + used, filled - used);
    filled -= used;
}

void Keypad::post(const unsigned char* bytes) {
    InputRecord record{};
    std::memcpy(&record, bytes, sizeof record);
    if (record.type == TypeKey && (record.value == KeyPressed || record.value == KeyReleased))
        GuiLibrary::postKey(record.code, record.value == KeyPressed);
}

}  // namespace gui
