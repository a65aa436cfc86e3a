#pragma once

#include <sys/types.h>
#include <termios.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <string>

namespace sim {

/// One open of something that belongs to the terminal: what the calls on its descriptor do. As in
/// the calls themselves, -1 with errno set is a failure. Every operation here passes the call on to
/// the descriptor itself; a model overrides those that differ.
class OpenFile {
public:
    OpenFile(int descriptor, std::string path);
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    virtual ~OpenFile() = default;

    int descriptor() const { return fd; }

    /// The descriptor is about to be closed, but has a duplicate that takes its place.
    virtual void moveTo(int duplicate) { fd = duplicate; }

    const std::string& path() const { return name; }

    /// The last descriptor is about to be closed. Called once.
    virtual void closing() {}

    /// May block, and may then be cancelled.
    virtual ssize_t read(void* buffer, size_t size);
    virtual ssize_t write(const void* data, size_t size);
    virtual int drain();

    virtual int ioctl(unsigned long request, void* argument);
    virtual int getAttributes(termios& settings);
    virtual int setAttributes(int when, const termios& settings);
    virtual int flush(int queue);
    virtual int sendBreak(int duration);

    /// Of the master of a pseudo-terminal: the terminal's name of its slave. Otherwise "".
    virtual std::string slaveName() const { return {}; }

private:
    std::atomic<int> fd;
    const std::string name;
};

/// A device node with a model behind it. Opens share the model; the last one to let it go frees it.
class Device : public std::enable_shared_from_this<Device> {
public:
    Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    virtual ~Device() = default;

    /// Opens the node; null with errno set when it refuses. This version hands the calls to the
    /// operations below.
    virtual std::shared_ptr<OpenFile> open(const std::string& path, int flags);

    /// What the calls on an open node do. None of them blocks for ever or is cancelled.
    virtual ssize_t read(void* buffer, size_t size);
    virtual ssize_t write(const void* data, size_t size);
    virtual int ioctl(unsigned long request, void* argument);
};

/// An open of a device that has no descriptor of its own. poll() sees it as always writable, and as
/// readable while it has been told so.
class ModelFile : public OpenFile {
public:
    /// Of the flags it is opened with, those for non-blocking and close-on-exec count.
    ModelFile(std::string path, int flags, std::shared_ptr<Device> device);

    void moveTo(int duplicate) override;
    void closing() override;
    ssize_t read(void* buffer, size_t size) override;
    ssize_t write(const void* data, size_t size) override;
    int ioctl(unsigned long request, void* argument) override;

protected:
    void setReadable(bool readable);

private:
    const std::shared_ptr<Device> device;

    std::mutex mutex;  // guards what follows, and the descriptor while it is used for it
    bool isReadable = false;
    bool isClosed = false;
};

/// Fails a call the way the system does.
inline int failWith(int error) {
    errno = error;
    return -1;
}

}  // namespace sim
