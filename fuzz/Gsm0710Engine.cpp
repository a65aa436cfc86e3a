// The multiplexer engine between a module and programs that do what the input says: send any octets
// in any pieces, stop taking them, come and go. Whatever happens, what leaves on the line is
// well-formed and holds every program's data once and in order, and the engine ends when asked to.
//
// The engine runs on this thread. It meets the system calls below, in which time passes only while
// it waits.

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

#include "gsm/Gsm0710Mux.h"
#include "power/BoardProtocol.h"
#include "power/PowerManager.h"

namespace {

constexpr int LineFd = 1000;
constexpr int Ports = 2;  // their descriptors follow

void require(bool holds) {
    if (!holds)
        std::abort();
}

/// Starts with a worker that ends at once: its work is done on the fuzzer's thread.
class Engine : public Gsm0710Mux {
public:
    void run() override {}
    void work() { Gsm0710Mux::run(); }
};

class World {
public:
    explicit World(std::string_view bytes) : script(bytes) {}

    void run() {
        const char* paths[] = {"1", "2", nullptr};
        require(engine.startMux("line", paths));
        engine.work();
        require(engine.stopMux());
        check();
    }

    ssize_t read(int fd, void* buffer, size_t size) {
        if (fd != LineFd)
            return readPort(ports[fd - LineFd - 1], buffer, size);
        if (answersLeft > 0) {
            --answersLeft;
            constexpr std::string_view Answer = "\r\nOK\r\n";
            std::memcpy(buffer, Answer.data(), Answer.size());
            return static_cast<ssize_t>(Answer.size());
        }
        return take(fromModule, buffer, size, isLineGone ? EIO : EAGAIN);
    }

    ssize_t write(int fd, const void* data, size_t size) {
        size_t& room = fd == LineFd ? lineRoom : ports[fd - LineFd - 1].room;
        if (fd == LineFd && isLineGone)
            return fail(EIO);
        if (room == 0)
            return fail(EAGAIN);
        const size_t taken = std::min(room, size);
        room -= taken;
        if (fd == LineFd)
            line.append(static_cast<const char*>(data), taken);
        return static_cast<ssize_t>(taken);
    }

    int poll(pollfd* files, nfds_t count, int timeoutMs) {
        int ready = look(files, count);
        while (ready == 0 && !script.empty() && timeoutMs > 0) {
            step();
            ready = look(files, count);
        }
        if (script.empty()) {
            lineRoom = SIZE_MAX;
            ready = look(files, count);
            isOver = (fromModule.empty() || isLineGone) && (isHeard() || ++idleRounds > 1000);
            if (isOver)
                engine.requestStop();
        }
        if (ready == 0 && timeoutMs > 0)
            now += timeoutMs;
        return ready;
    }

    static World* current;
    long now = 1000;  // ms

private:
    struct Port {
        std::string fromProgram, sent;
        unsigned said = 0;
        size_t room = SIZE_MAX;
        bool isClosed = false;
    };

    static ssize_t fail(int error) {
        errno = error;
        return -1;
    }

    static ssize_t take(std::string& from, void* buffer, size_t size, int error) {
        const size_t taken = std::min(size, from.size());
        if (taken == 0)
            return fail(error);
        std::memcpy(buffer, from.data(), taken);
        from.erase(0, taken);
        return static_cast<ssize_t>(taken);
    }

    /// Whether the engine has read all that the programs have written into open ports.
    bool isHeard() const {
        return wasLineGone || std::all_of(ports, ports + Ports, [](const Port& port) {
                   return port.isClosed || port.fromProgram.empty();
               });
    }

    ssize_t readPort(Port& port, void* buffer, size_t size) {
        idleRounds = 0;
        const ssize_t taken = take(port.fromProgram, buffer, size, port.isClosed ? EIO : EAGAIN);
        if (taken > 0)
            port.sent.append(static_cast<const char*>(buffer), static_cast<size_t>(taken));
        return taken;
    }

    int look(pollfd* files, nfds_t count) {
        int ready = 0;
        for (pollfd* file = files; file != files + count; ++file) {
            const bool isLine = file->fd == LineFd;
            const Port& port = ports[isLine ? 0 : file->fd - LineFd - 1];
            const bool hasInput =
                isLine ? answersLeft > 0 || !fromModule.empty() : !port.fromProgram.empty();
            const bool hasRoom = (isLine ? lineRoom : port.room) > 0;
            int events = (hasInput ? POLLIN : 0) | (hasRoom ? POLLOUT : 0);
            events &= file->events;
            if (isLine ? isLineGone : port.isClosed)
                events |= POLLHUP;
            file->revents = static_cast<short>(events);
            ready += events != 0;
        }
        return ready;
    }

    /// The next thing that happens: what, and how much of it.
    void step() {
        const auto what = static_cast<uint8_t>(script[0]);
        size_t amount = script.size() > 1 ? static_cast<uint8_t>(script[1]) : 0;
        script.remove_prefix(std::min<size_t>(script.size(), 2));
        Port& port = ports[what & 1];
        switch (what >> 1 & 7) {
        case 0: port.isClosed = amount % 2; break;
        case 1: port.room = amount == 255 ? SIZE_MAX : amount; break;
        case 2: lineRoom = amount == 255 ? SIZE_MAX : amount; break;
        case 3:
            isLineGone = amount == 77;
            wasLineGone |= isLineGone;
            break;
        case 4:
        case 5:
            for (amount *= 3; amount > 0 && !port.isClosed; --amount)
                port.fromProgram += static_cast<char>('A' + port.said++ % 57);
            break;
        default:
            amount = std::min(amount, script.size());
            fromModule += script.substr(0, amount);
            script.remove_prefix(amount);
            break;
        }
    }

    /// All of the line's octets are the commands and then whole frames. A line that was gone may
    /// miss the end.
    void check() {
        std::string_view rest = line;
        constexpr std::string_view Commands = "AT\rAT+CMUX=0\r";
        require(rest.substr(0, Commands.size()) == Commands);
        rest.remove_prefix(Commands.size());
        std::string data[Ports];
        while (!rest.empty()) {
            if (wasLineGone && rest.size() < 6)
                break;
            const auto octet = [&](size_t at) { return static_cast<uint8_t>(rest[at]); };
            const size_t length = octet(3) / 2;
            if (wasLineGone && rest.size() < length + 6)
                break;
            require(octet(0) == 0xF9 && octet(1) % 4 == 3 && octet(3) % 2 == 1 && length <= 31);
            require(octet(length + 5) == 0xF9);
            const unsigned channel = octet(1) / 4U;
            if (octet(2) == 0xEF && channel != 0) {
                require(channel <= Ports);
                data[channel - 1] += rest.substr(4, length);
            }
            rest.remove_prefix(length + 6);
        }
        require(!isOver || isHeard());  // else the module has ended it
        for (int i = 0; i < Ports; ++i) {
            require(ports[i].sent.compare(0, data[i].size(), data[i]) == 0);
            require(wasLineGone || data[i].size() == ports[i].sent.size());
        }
    }

    std::string_view script;
    std::string fromModule, line;
    Port ports[Ports];
    size_t lineRoom = SIZE_MAX;
    int answersLeft = 2;
    int idleRounds = 0;
    bool isLineGone = false, wasLineGone = false, isOver = false;
    Engine engine;
};

World* World::current = nullptr;

bool isOurs(int fd) { return World::current && fd >= LineFd && fd <= LineFd + Ports; }

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): libc's names are reserved ones
extern "C" {

int open(const char* path, int flags, ...) {
    if (World::current && std::strcmp(path, "line") == 0)
        return LineFd;
    if (World::current && std::strlen(path) == 1)
        return LineFd + (*path - '0');
    // The power manager's devices.
    const bool isDevice = std::strncmp(path, "/dev/", 5) == 0;
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, isDevice ? "/dev/null" : path, flags, 0));
}

int close(int fd) { return isOurs(fd) ? 0 : static_cast<int>(syscall(SYS_close, fd)); }

ssize_t read(int fd, void* buffer, size_t size) {
    return isOurs(fd) ? World::current->read(fd, buffer, size)
                      : syscall(SYS_read, fd, buffer, size);
}

ssize_t write(int fd, const void* data, size_t size) {
    return isOurs(fd) ? World::current->write(fd, data, size) : syscall(SYS_write, fd, data, size);
}

int poll(pollfd* files, nfds_t count, int timeoutMs) {
    return World::current ? World::current->poll(files, count, timeoutMs)
                          : static_cast<int>(syscall(SYS_poll, files, count, timeoutMs));
}

int ioctl(int, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    if (request == board::GetEventTypes)
        *va_arg(arguments, uint32_t*) = 1U << board::InputSound;
    va_end(arguments);
    return 0;
}
int tcgetattr(int, termios*) noexcept { return 0; }
int tcsetattr(int, int, const termios*) noexcept { return 0; }
int tcflush(int, int) noexcept { return 0; }
int tcdrain(int) { return 0; }
char* ptsname(int) noexcept {
    static char name[] = "slave";
    return name;
}

int nanosleep(const timespec*, timespec*) {
    sched_yield();
    return 0;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (!World::current || clock != CLOCK_MONOTONIC)
        return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    *time = {World::current->now / 1000, World::current->now % 1000 * 1'000'000};
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool isPowered = PowerManager::initPowerManager();
    require(isPowered);
    World world({reinterpret_cast<const char*>(data), size});
    World::current = &world;
    world.run();
    World::current = nullptr;
    return 0;
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
