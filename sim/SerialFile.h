#pragma once

#include "sim/Device.h"
#include "sim/SerialLine.h"

namespace sim {

/// One open of a serial line. The line outlives it.
class SerialFile : public OpenFile {
public:
    SerialFile(int descriptor, const std::string& path, SerialLine& line, unsigned generation);

    void closing() override;
    ssize_t write(const void* data, size_t size) override;
    int drain() override;
    int ioctl(unsigned long request, void* argument) override;
    int getAttributes(termios& settings) override;
    int setAttributes(int when, const termios& settings) override;
    int flush(int queue) override;
    int sendBreak(int duration) override;

    /// The settings that a pseudo-terminal knows; libc reports an error for the others.
    static termios pseudoTerminalPart(termios settings);

private:
    class Passage;

    bool isCurrent() const { return generation == line->generation; }

    const std::shared_ptr<Device> keepsAlive;
    SerialLine* const line;
    const unsigned generation;  // of the pair this open belongs to
};

}  // namespace sim
