#include "sim/Device.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <utility>

#include "sim/Cancellation.h"
#include "sim/posix/Real.h"

namespace sim {

OpenFile::OpenFile(int descriptor, std::string path) : fd(descriptor), name(std::move(path)) {}

ssize_t OpenFile::read(void* buffer, size_t size) { return SIM_REAL(read)(fd, buffer, size); }
ssize_t OpenFile::write(const void* data, size_t size) { return SIM_REAL(write)(fd, data, size); }
int OpenFile::drain() { return SIM_REAL(tcdrain)(fd); }
int OpenFile::ioctl(unsigned long request, void* argument) {
    return SIM_REAL(ioctl)(fd, request, argument);
}
int OpenFile::getAttributes(termios& settings) { return SIM_REAL(tcgetattr)(fd, &settings); }
int OpenFile::setAttributes(int when, const termios& settings) {
    return SIM_REAL(tcsetattr)(fd, when, &settings);
}
int OpenFile::flush(int queue) { return SIM_REAL(tcflush)(fd, queue); }
int OpenFile::sendBreak(int duration) { return SIM_REAL(tcsendbreak)(fd, duration); }

std::shared_ptr<OpenFile> Device::open(const std::string& path, int flags) {
    return std::make_shared<ModelFile>(path, flags, shared_from_this());
}

ssize_t Device::read(void*, size_t) { return failWith(EINVAL); }
ssize_t Device::write(const void*, size_t) { return failWith(EINVAL); }
int Device::ioctl(unsigned long, void*) { return failWith(ENOTTY); }

static_assert(EFD_NONBLOCK == O_NONBLOCK && EFD_CLOEXEC == O_CLOEXEC);

ModelFile::ModelFile(std::string path, int flags, std::shared_ptr<Device> openedDevice)
    : OpenFile(eventfd(0, flags & (O_NONBLOCK | O_CLOEXEC)), std::move(path)),
      device(std::move(openedDevice)) {}

void ModelFile::moveTo(int duplicate) {
    const std::lock_guard<std::mutex> held(mutex);
    OpenFile::moveTo(duplicate);
}

void ModelFile::closing() {
    const std::lock_guard<std::mutex> held(mutex);
    isClosed = true;
}

ssize_t ModelFile::read(void* buffer, size_t size) {
    const CancellationOff uncancelled;
    return device->read(buffer, size);
}

ssize_t ModelFile::write(const void* data, size_t size) {
    const CancellationOff uncancelled;
    return device->write(data, size);
}

int ModelFile::ioctl(unsigned long request, void* argument) {
    return device->ioctl(request, argument);
}

void ModelFile::setReadable(bool readable) {
    const std::lock_guard<std::mutex> held(mutex);
    if (isClosed || readable == isReadable)
        return;
    uint64_t count = 1;
    if (readable)
        SIM_REAL(write)(descriptor(), &count, sizeof count);
    else
        SIM_REAL(read)(descriptor(), &count, sizeof count);
    isReadable = readable;
}

}  // namespace sim
