#include "sim/devices/PseudoTerminals.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "sim/posix/Real.h"

namespace sim {
namespace {

/// What the two nodes of a pair share.
struct Pair {
    Pair(const RootFolder& rootFolder, std::string slave)
        : files(rootFolder), slavePath(std::move(slave)) {}

    void begin(const char* path) {
        hostPath = path;
        files.link(slavePath, hostPath);
    }
    void end() {
        hostPath.clear();
        files.remove(slavePath);
    }

    const RootFolder& files;
    const std::string slavePath;
    std::mutex mutex;      // guards what follows
    std::string hostPath;  // of the slave; empty while the master is closed
};

class MasterFile : public OpenFile {
public:
    MasterFile(int descriptor, const std::string& path, std::shared_ptr<Pair> openedPair)
        : OpenFile(descriptor, path), pair(std::move(openedPair)) {}

    void closing() override {
        const std::lock_guard<std::mutex> held(pair->mutex);
        pair->end();
    }

    std::string slaveName() const override { return pair->slavePath; }

private:
    const std::shared_ptr<Pair> pair;
};

class Master : public Device {
public:
    explicit Master(std::shared_ptr<Pair> ownPair) : pair(std::move(ownPair)) {}

    std::shared_ptr<OpenFile> open(const std::string& path, int flags) override {
        const std::lock_guard<std::mutex> held(pair->mutex);
        if (!pair->hostPath.empty()) {
            errno = EIO;
            return nullptr;
        }
        const int fd = posix_openpt(O_RDWR | O_NOCTTY | (flags & (O_NONBLOCK | O_CLOEXEC)));
        char name[64];
        if (fd < 0)
            return nullptr;
        if (SIM_REAL(grantpt)(fd) != 0 || SIM_REAL(unlockpt)(fd) != 0 ||
            SIM_REAL(ptsname_r)(fd, name, sizeof name) != 0) {
            SIM_REAL(close)(fd);
            errno = EIO;
            return nullptr;
        }
        pair->begin(name);
        return std::make_shared<MasterFile>(fd, path, pair);
    }

private:
    const std::shared_ptr<Pair> pair;
};

class Slave : public Device {
public:
    explicit Slave(std::shared_ptr<Pair> ownPair) : pair(std::move(ownPair)) {}

    std::shared_ptr<OpenFile> open(const std::string& path, int flags) override {
        const std::lock_guard<std::mutex> held(pair->mutex);
        if (pair->hostPath.empty()) {
            errno = EIO;
            return nullptr;
        }
        const int fd = SIM_REAL(open)(pair->hostPath.c_str(), flags | O_NOCTTY);
        return fd < 0 ? nullptr : std::make_shared<OpenFile>(fd, path);
    }

private:
    const std::shared_ptr<Pair> pair;
};

}  // namespace

PseudoTerminals::PseudoTerminals(const RootFolder& files) {
    for (int number = 0; number < Pairs; ++number) {
        const char digit = "0123456789abcdef"[number];
        const auto pair = std::make_shared<Pair>(files, std::string("/dev/ttyp") + digit);
        devices[std::string("/dev/ptyp") + digit] = std::make_shared<Master>(pair);
        devices[pair->slavePath] = std::make_shared<Slave>(pair);
    }
}

void PseudoTerminals::addTo(std::unordered_map<std::string, std::shared_ptr<Device>>& nodes) const {
    nodes.insert(devices.begin(), devices.end());
}

}  // namespace sim
