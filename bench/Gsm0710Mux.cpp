// The multiplexer engine. What it writes to the line against bare writes of the same sizes; octets
// from a program's port to the line and back against a bare poll/read/write relay between the same
// pseudo-terminals, alone and beside a port that is closed or not read; processor time and
// wake-ups. With "--soak MEGABYTES" that much goes through, and every octet is looked at: 1000 is a
// day of a line with 115,200 baud.

#include "gsm/Gsm0710Mux.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/Ratio.h"
#include "gsm/Gsm0710Buffer.h"
#include "gsm/Gsm0710FrameQueue.h"
#include "gsm/Gsm0710Protocol.h"
#include "io/FileDescriptor.h"
#include "power/PowerManager.h"
#include "sim/Terminal.h"

namespace {

constexpr size_t ReadSize = 512;  // what engine and relay read at once
constexpr size_t PieceSize = gsm0710::MaxSentLength;
constexpr size_t Window = 4096;  // how much is on its way at once
constexpr size_t Burst = 256 * 1024;

char octetAt(size_t position) { return static_cast<char>(position + position / 251); }

void makeRaw(int fd) {
    termios settings{};
    tcgetattr(fd, &settings);
    cfmakeraw(&settings);
    tcsetattr(fd, TCSANOW, &settings);
}

void writeAll(int fd, const char* data, size_t size) {
    for (size_t written = 0; written < size;) {
        const ssize_t count = ::write(fd, data + written, size - written);
        if (count > 0) {
            written += static_cast<size_t>(count);
            continue;
        }
        pollfd full{fd, POLLOUT, 0};
        ::poll(&full, 1, 1000);
    }
}

/// A thread with a loop that is called until the end of its scope.
class Looper {
public:
    template <class Step> explicit Looper(Step step) {
        thread = std::thread([this, step]() mutable {
            while (!isOver)
                step();
        });
    }
    Looper(const Looper&) = delete;
    Looper& operator=(const Looper&) = delete;
    ~Looper() {
        isOver = true;
        thread.join();
    }

private:
    std::atomic<bool> isOver{false};
    std::thread thread;
};

/// The line's pseudo-terminal, with a module at its far end that answers the commands and then
/// sends everything back: frames on channel 1 return to where they came from.
class Line {
public:
    Line() {
        grantpt(farEnd.get());
        unlockpt(farEnd.get());
        keeper.reset(::open(path(), O_RDWR | O_NOCTTY));
        makeRaw(keeper.get());
    }

    const char* path() const { return ptsname(farEnd.get()); }

    /// Added to what is sent back, between two frames, about once per read.
    void addFrame(const std::string& frame) { added = frame; }

private:
    void serve() {
        pollfd ready{farEnd.get(), POLLIN, 0};
        char octets[4096];
        if (::poll(&ready, 1, 100) <= 0)
            return;
        const ssize_t count = ::read(farEnd.get(), octets, sizeof octets);
        if (count <= 0)
            return;
        if (std::strncmp(octets, "AT", 2) == 0) {
            writeAll(farEnd.get(), "OK\r\n", 4);
            return;
        }
        const size_t whole = endOfLastFrame(octets, static_cast<size_t>(count));
        writeAll(farEnd.get(), octets, whole);
        if (whole > 0)
            writeAll(farEnd.get(), added.data(), added.size());
        writeAll(farEnd.get(), octets + whole, static_cast<size_t>(count) - whole);
    }

    /// Follows the frames through what comes in whatever pieces. 0 when none ends in this one.
    size_t endOfLastFrame(const char* octets, size_t count) {
        size_t end = 0;
        for (size_t i = 0; i < count; ++i) {
            ++inFrame;
            if (inFrame == 4)
                frameSize = 6U + static_cast<uint8_t>(octets[i]) / 2U;
            if (inFrame >= 4 && inFrame == frameSize) {
                inFrame = 0;
                end = i + 1;
            }
        }
        return end;
    }

    io::FileDescriptor farEnd{posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK)};
    io::FileDescriptor keeper;
    std::string added;
    size_t inFrame = 0, frameSize = 0;
    Looper server{[this] { serve(); }};
};

/// A program's end of a port.
class Program {
public:
    explicit Program(const char* path) {
        for (int tries = 0; tries < 100 && !port.isOpen(); ++tries) {
            port.reset(::open(path, O_RDWR | O_NOCTTY | O_NONBLOCK));
            if (!port.isOpen())
                usleep(10000);
        }
        makeRaw(port.get());
    }

    int fd() const { return port.get(); }

    /// Sends octets and takes them back. False when one of them is not the next.
    bool exchange(size_t size) {
        size_t left = size;
        const size_t end = received + size;
        char octets[Window];
        while (received < end) {
            const size_t count = std::min(left, Window - (sent - received));
            for (size_t i = 0; i < count; ++i)
                octets[i] = octetAt(sent + i);
            const ssize_t written = count > 0 ? ::write(port.get(), octets, count) : 0;
            if (written > 0) {
                sent += static_cast<size_t>(written);
                left -= static_cast<size_t>(written);
            }
            pollfd ready{port.get(), POLLIN, 0};
            if (::poll(&ready, 1, 5000) <= 0)
                return false;
            const ssize_t taken = ::read(port.get(), octets, sizeof octets);
            for (ssize_t i = 0; i < taken; ++i) {
                if (octets[i] != octetAt(received++))
                    return false;
            }
        }
        return true;
    }

private:
    io::FileDescriptor port;
    size_t sent = 0, received = 0;
};

/// The engine between a line and a program.
struct Multiplexed {
    Multiplexed() {
        const char* ports[] = {"/dev/ptyp0", "/dev/ptyp1", nullptr};
        mux.startMux(line.path(), ports);
        program = std::make_unique<Program>("/dev/ttyp0");
        usleep(500000);  // for the switch to multiplexing
    }
    Multiplexed(const Multiplexed&) = delete;
    Multiplexed& operator=(const Multiplexed&) = delete;
    ~Multiplexed() { mux.stopMux(); }

    Line line;
    Gsm0710Mux mux;
    std::unique_ptr<Program> program;
};

/// What carries octets between a port and a line in pieces, and knows nothing of frames.
class Relay {
public:
    Relay(const char* masterPath, const char* slavePath, size_t pieceSize)
        : piece(pieceSize), port(::open(masterPath, O_RDWR | O_NOCTTY | O_NONBLOCK)),
          program(slavePath) {}

private:
    void carry(const io::FileDescriptor& from, const io::FileDescriptor& to) const {
        char octets[ReadSize];
        const ssize_t count = ::read(from.get(), octets, sizeof octets);
        for (ssize_t at = 0; at < count; at += static_cast<ssize_t>(piece))
            writeAll(to.get(), octets + at, std::min(piece, static_cast<size_t>(count - at)));
    }

    void serve() const {
        pollfd ready[] = {{end.get(), POLLIN, 0}, {port.get(), POLLIN, 0}};
        if (::poll(ready, 2, 100) <= 0)
            return;
        if (ready[0].revents & POLLIN)
            carry(end, port);
        if (ready[1].revents & POLLIN)
            carry(port, end);
    }

    const size_t piece;
    Line line;
    const io::FileDescriptor end{::open(line.path(), O_RDWR | O_NOCTTY | O_NONBLOCK)};
    const io::FileDescriptor port;

public:
    Program program;

private:
    Looper server{[this] { serve(); }};
};

/// All that the measurements use, made once.
struct Setup {
    Multiplexed engine;
    Relay pieces{"/dev/ptyp2", "/dev/ttyp2", PieceSize};
    Relay reads{"/dev/ptyp3", "/dev/ttyp3", ReadSize};
};

std::unique_ptr<Setup> setup;

std::string frameOnChannelTwo() {
    gsm0710::FrameQueue queue;
    const std::vector<unsigned char> data(PieceSize, 'x');
    queue.add(2, gsm0710::Uih, data.data(), PieceSize);
    int ends[2];
    if (pipe(ends) != 0)
        std::abort();
    queue.flush(ends[1]);
    char octets[64];
    const ssize_t count = ::read(ends[0], octets, sizeof octets);
    ::close(ends[0]);
    ::close(ends[1]);
    return {octets, static_cast<size_t>(count)};
}

void roundTrip(benchmark::State& state, Program& program) {
    for (auto _ : state) {
        if (!program.exchange(Burst)) {
            state.SkipWithError("octets are missing");
            return;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(Burst));
}

void multiplexer(benchmark::State& state) {
    setup->engine.line.addFrame("");
    roundTrip(state, *setup->engine.program);
}

void besideAClosedPort(benchmark::State& state) {
    { const Program closedAtOnce("/dev/ttyp1"); }
    setup->engine.line.addFrame(frameOnChannelTwo());
    roundTrip(state, *setup->engine.program);
}

void besideAnUnreadPort(benchmark::State& state) {
    const Program second("/dev/ttyp1");
    setup->engine.line.addFrame(frameOnChannelTwo());
    setup->engine.program->exchange(16 * Burst);  // the port is full then, and given up on
    roundTrip(state, *setup->engine.program);
}

void relay(benchmark::State& state) { roundTrip(state, setup->pieces.program); }

void relayOfWholeReads(benchmark::State& state) { roundTrip(state, setup->reads.program); }

/// Writes of one size to a line, which is emptied now and then.
template <class Write> void writeToLine(benchmark::State& state, size_t size, Write write) {
    const io::FileDescriptor farEnd(posix_openpt(O_RDWR | O_NOCTTY));
    grantpt(farEnd.get());
    unlockpt(farEnd.get());
    const io::FileDescriptor line(::open(ptsname(farEnd.get()), O_RDWR | O_NOCTTY | O_NONBLOCK));
    makeRaw(line.get());
    const size_t writes = Window / size;
    char taken[Window];
    for (auto _ : state) {
        for (size_t i = 0; i < writes; ++i)
            write(line.get());
        for (size_t left = writes * size; left > 0;)
            left -= static_cast<size_t>(::read(farEnd.get(), taken, left));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(writes * size));
}

void encoder(benchmark::State& state) {
    const auto length = static_cast<unsigned>(state.range(0));
    const std::vector<unsigned char> data(length, 'x');
    gsm0710::FrameQueue queue;
    writeToLine(state, gsm0710::FrameQueue::encodedSize(length), [&](int line) {
        queue.add(1, gsm0710::Uih, data.data(), length);
        queue.flush(line);
        if (!queue.isEmpty())
            state.SkipWithError("more than one system call");
    });
}

void bareWrites(benchmark::State& state) {
    const size_t size = gsm0710::FrameQueue::encodedSize(static_cast<unsigned>(state.range(0)));
    const std::vector<char> data(size, 'x');
    writeToLine(state, size, [&](int line) {
        if (::write(line, data.data(), size) != static_cast<ssize_t>(size))
            state.SkipWithError("the line is full");
    });
}

BENCHMARK(encoder)->Arg(PieceSize)->Arg(ReadSize);
BENCHMARK(bareWrites)->Arg(PieceSize)->Arg(ReadSize);
BENCHMARK(multiplexer)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(besideAClosedPort)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(besideAnUnreadPort)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(relay)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(relayOfWholeReads)->UseRealTime()->Unit(benchmark::kMillisecond);

/// The number behind a label in the engine thread's status, or its processor time in nanoseconds.
struct EngineThread {
    std::string folder;

    /// The thread that is there with an engine and was not without.
    static std::vector<std::string> all() {
        std::vector<std::string> names;
        DIR* const tasks = opendir("/proc/self/task");
        while (const dirent* task = readdir(tasks))
            names.emplace_back(task->d_name);
        closedir(tasks);
        return names;
    }

    /// The engine's: it was made last, after the line's.
    static EngineThread since(const std::vector<std::string>& before) {
        EngineThread engine;
        for (const std::string& name : all()) {
            if (std::find(before.begin(), before.end(), name) == before.end())
                engine.folder = "/proc/self/task/" + name;
        }
        return engine;
    }

    long wakeUps() const {
        std::ifstream file(folder + "/status");
        for (std::string text; std::getline(file, text);) {
            if (text.rfind("voluntary_ctxt_switches:", 0) == 0)
                return atol(text.c_str() + 24);
        }
        return 0;
    }

    double cpuNs() const {
        std::ifstream file(folder + "/schedstat");
        double time = 0;
        file >> time;
        return time;
    }
};

/// What the engine's own thread costs: per octet, and while nothing happens.
void printCosts() {
    Line line;
    const std::vector<std::string> before = EngineThread::all();
    Gsm0710Mux mux;
    const char* ports[] = {"/dev/ptyp0", "/dev/ptyp1", nullptr};
    mux.startMux(line.path(), ports);
    const EngineThread engine = EngineThread::since(before);
    Program first("/dev/ttyp0");
    std::vector<Program> second;
    second.emplace_back("/dev/ttyp1");
    usleep(500000);
    constexpr size_t Octets = 16 * Burst;
    double cpu = engine.cpuNs();
    first.exchange(Octets);
    printf("the engine takes %.1f ns of processor time per octet and way\n",
           (engine.cpuNs() - cpu) / (2.0 * Octets));
    for (const char* what : {"with every port open", "with one port closed"}) {
        usleep(1100000);
        const long wakeUps = engine.wakeUps();
        cpu = engine.cpuNs();
        sleep(5);
        printf("idle %s it wakes %.1f times per second and takes %.2f %% of a core\n", what,
               static_cast<double>(engine.wakeUps() - wakeUps) / 5, (engine.cpuNs() - cpu) / 5e7);
        second.clear();
    }
    mux.stopMux();
}

int soak(size_t megabytes) {
    const std::vector<std::string> before = EngineThread::all();
    Multiplexed multiplexed;
    const EngineThread engine = EngineThread::since(before);
    const double cpu = engine.cpuNs();
    const auto begin = std::chrono::steady_clock::now();
    for (size_t done = 0; done < megabytes; ++done) {
        if (!multiplexed.program->exchange(1000000)) {
            printf("an octet is missing, doubled or out of order after %zu MB\n", done);
            return 1;
        }
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    const auto size = static_cast<double>(megabytes);
    printf("%zu MB went through and back, every octet once and in order: %.2f MB/s each way, "
           "%.1f ns of the engine's processor time per octet and way\n",
           megabytes, size / took.count(), (engine.cpuNs() - cpu) / (2e6 * size));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    sim::Terminal terminal;
    if (!PowerManager::initPowerManager())
        return 1;
    if (argc == 3 && std::strcmp(argv[1], "--soak") == 0)
        return soak(static_cast<size_t>(atol(argv[2])));
    bench::RatioReporter reporter;
    setup = std::make_unique<Setup>();
    bench::runAll(argc, argv, reporter);
    setup.reset();
    reporter.printThroughput("encoder/31", "bareWrites/31", 0.9);
    reporter.printThroughput("encoder/512", "bareWrites/512", 0.9);
    reporter.printThroughput("multiplexer/real_time", "relay/real_time", 0.9);
    reporter.printThroughput("multiplexer/real_time", "relayOfWholeReads/real_time", 0);
    reporter.printThroughput("besideAClosedPort/real_time", "multiplexer/real_time", 0.8);
    reporter.printThroughput("besideAnUnreadPort/real_time", "multiplexer/real_time", 0.8);
    printCosts();
    PowerManager::deinitPowerManager();
    return reporter.status();
}
