#include "sim/SerialFile.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>

#include "sim/posix/Real.h"

namespace sim {

SerialFile::SerialFile(int descriptor, const std::string& path, SerialLine& openedLine,
                       unsigned pairGeneration)
    : OpenFile(descriptor, path), keepsAlive(openedLine.shared_from_this()), line(&openedLine),
      generation(pairGeneration) {}

void SerialFile::closing() {
    const std::lock_guard<std::mutex> held(line->mutex);
    if (isCurrent() && --line->opens == 0) {
        if (line->lineSettings.c_cflag & HUPCL)
            line->modemBits &= ~(TIOCM_DTR | TIOCM_RTS);
        line->dropWaiting();
    }
}

/// Counts bytes before they are written, so that none is consumed uncounted; takes back those that
/// were not written after all, also when the writer is cancelled.
class SerialFile::Passage {
public:
    Passage(SerialFile& openedFile, size_t size) : file(openedFile), unsent(size) {
        const std::lock_guard<std::mutex> held(file.line->mutex);
        if (file.isCurrent())
            file.line->writtenBytes += size;
    }
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;
    ~Passage() {
        SerialLine& wire = *file.line;
        const std::lock_guard<std::mutex> held(wire.mutex);
        if (!file.isCurrent())
            return;
        wire.writtenBytes -= unsent;
        wire.consumedBytes = std::min(wire.consumedBytes, wire.writtenBytes);
        wire.consumed.notify_all();
    }

    void sent(ssize_t size) { unsent -= size > 0 ? static_cast<size_t>(size) : 0; }

private:
    SerialFile& file;
    size_t unsent;
};

ssize_t SerialFile::write(const void* data, size_t size) {
    Passage passage(*this, size);
    const ssize_t written = OpenFile::write(data, size);
    passage.sent(written);
    return written;
}

int SerialFile::drain() {
    std::unique_lock<std::mutex> held(line->mutex);
    line->consumed.wait(held, [this] {
        return !isCurrent() || line->isStopping || line->consumedBytes >= line->writtenBytes;
    });
    return isCurrent() ? 0 : failWith(EIO);
}

int SerialFile::ioctl(unsigned long request, void* argument) {
    switch (request) {
    case TIOCMGET:
    case TIOCMSET:
    case TIOCMBIS:
    case TIOCMBIC: break;
    default: return OpenFile::ioctl(request, argument);
    }
    const std::lock_guard<std::mutex> held(line->mutex);
    if (!isCurrent())
        return failWith(EIO);
    constexpr int Outputs = TIOCM_DTR | TIOCM_RTS;
    int& given = *static_cast<int*>(argument);
    int& bits = line->modemBits;
    if (request == TIOCMGET)
        given = bits;
    else if (request == TIOCMSET)
        bits = (bits & ~Outputs) | (given & Outputs);
    else if (request == TIOCMBIS)
        bits |= given & Outputs;
    else
        bits &= ~(given & Outputs);
    return 0;
}

int SerialFile::getAttributes(termios& settings) {
    const std::lock_guard<std::mutex> held(line->mutex);
    if (!isCurrent())
        return failWith(EIO);
    settings = line->lineSettings;
    return 0;
}

int SerialFile::setAttributes(int when, const termios& settings) {
    if (when != TCSANOW && drain() != 0)
        return -1;
    const std::lock_guard<std::mutex> held(line->mutex);
    if (!isCurrent())
        return failWith(EIO);
    line->lineSettings = settings;
    return OpenFile::setAttributes(when, pseudoTerminalPart(settings));
}

termios SerialFile::pseudoTerminalPart(termios settings) {
    settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB);
    settings.c_cflag |= CS8 | CREAD;
    return settings;
}

int SerialFile::flush(int queue) {
    const std::lock_guard<std::mutex> held(line->mutex);
    if (!isCurrent())
        return failWith(EIO);
    // Either end's own flush leaves the bytes that are on the other's side of the way.
    const int result = OpenFile::flush(queue);
    if (queue != TCOFLUSH)
        line->discardSent(descriptor());
    if (queue != TCIFLUSH) {
        SIM_REAL(tcflush)(line->farEnd, TCIFLUSH);
        line->consumedBytes = line->writtenBytes;
        line->consumed.notify_all();
    }
    return result;
}

int SerialFile::sendBreak(int) {
    {
        const std::lock_guard<std::mutex> held(line->mutex);
        if (!isCurrent())
            return failWith(EIO);
    }
    line->journal.note(line->name, "break");
    return 0;
}

}  // namespace sim
