#pragma once

#include <array>
#include <cstddef>

namespace gui {

/// The keypad's input device, open while the event loop runs. Without the device it stays closed.
class Keypad {
public:
    Keypad();
    Keypad(const Keypad&) = delete;
    Keypad& operator=(const Keypad&) = delete;
    ~Keypad();

    /// For poll(), which ignores the -1 of a closed device.
    int descriptor() const { return fd; }

    /// Reads what is there and posts its key events. Closes a device that has gone.
    void readKeys();

private:
    static constexpr size_t RecordSize = 16;

    void close();
    void post(const unsigned char* bytes);

    int fd;
    std::array<unsigned char, 32 * RecordSize> buffer{};
    size_t filled = 0;  // an incomplete record stays until its rest arrives
};

}  // namespace gui
