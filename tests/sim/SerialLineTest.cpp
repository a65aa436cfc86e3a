#include "sim/SerialLine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>
#include <utility>

#include "sim/HostTime.h"
#include "sim/Terminal.h"

namespace {

using namespace std::chrono_literals;

constexpr char Path[] = "/dev/ttyAT2";
constexpr auto Limit = 60s;  // of the host's time, far beyond anything that works

/// The far end: notes what it gets, and can be made to stop in the middle of it.
class Peer final : public sim::LinePeer {
public:
    void received(std::string_view bytes) override {
        std::unique_lock<std::mutex> held(mutex);
        text += bytes;
        changed.notify_all();
        changed.wait(held, [this] { return !isBlocked; });
    }

    void block(bool blocked) {
        const std::lock_guard<std::mutex> held(mutex);
        isBlocked = blocked;
        changed.notify_all();
    }

    std::string got() const {
        const std::lock_guard<std::mutex> held(mutex);
        return text;
    }

    bool gets(const std::string& expected) const {
        return sim::eventually([&] { return got() == expected; }, Limit);
    }

private:
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::string text;
    bool isBlocked = false;
};

int pendingInput(int fd) {
    int count = 0;
    ioctl(fd, FIONREAD, &count);
    return count;
}

class SerialLineTest : public testing::Test {
protected:
    SerialLineTest() { line.connect(&peer); }
    ~SerialLineTest() override {
        peer.block(false);
        line.connect(nullptr);
        if (fd >= 0)
            close(fd);
    }

    /// Raw, as every driver has it.
    static int openRaw() {
        const int opened = ::open(Path, O_RDWR | O_NOCTTY);
        termios raw{};
        tcgetattr(opened, &raw);
        cfmakeraw(&raw);
        tcsetattr(opened, TCSANOW, &raw);
        return opened;
    }

    std::string readText(size_t size) const {
        std::string text(size, '\0');
        for (size_t at = 0; at < size;) {
            const ssize_t count = read(fd, &text[at], size - at);
            if (count <= 0)
                return text.substr(0, at) + "<error>";
            at += static_cast<size_t>(count);
        }
        return text;
    }

    sim::Terminal terminal;
    sim::SerialLine& line = terminal.barcodeLine();
    Peer peer;
    int fd = openRaw();
};

TEST_F(SerialLineTest, SettingsAreKeptThatAPseudoTerminalDrops) {
    const struct {
        tcflag_t control, input;
        speed_t speed;
        const char* text;
    } cases[] = {
        {CS7 | PARENB, 0, B300, "300 7E1"},
        {CS5 | PARENB | PARODD | CSTOPB, IXON | IXOFF, B0, "0 5O2 xonxoff"},
        {CS6 | CRTSCTS, 0, B115200, "115200 6N1 rtscts"},
        {CS8 | CRTSCTS | PARENB, IXON, B57600, "57600 8E1 rtscts xonxoff"},
    };
    for (const auto& tried : cases) {
        for (const int when : {TCSANOW, TCSADRAIN, TCSAFLUSH}) {
            termios wanted{}, found{};
            wanted.c_cflag = tried.control | CREAD;
            wanted.c_iflag = tried.input;
            cfsetspeed(&wanted, tried.speed);
            EXPECT_EQ(tcsetattr(fd, when, &wanted), 0) << tried.text;
            EXPECT_EQ(line.settings(), tried.text);
            EXPECT_EQ(tcgetattr(fd, &found), 0);
            EXPECT_EQ(found.c_cflag, wanted.c_cflag) << tried.text;
        }
    }
    close(open(Path, O_RDWR));
    EXPECT_EQ(line.settings(), "57600 8E1 rtscts xonxoff") << "an open changes nothing";
}

TEST_F(SerialLineTest, ModemLinesAreDrivenAndSeen) {
    constexpr int Inputs = TIOCM_CTS | TIOCM_DSR | TIOCM_CAR;
    const auto request = [&](unsigned long number, int bits) {
        EXPECT_EQ(ioctl(fd, number, &bits), 0);
        return bits;
    };
    EXPECT_EQ(request(TIOCMGET, 0), TIOCM_DTR | TIOCM_RTS | Inputs);
    line.setModemLine(TIOCM_CTS, false);
    line.setModemLine(TIOCM_RI, true);
    EXPECT_EQ(request(TIOCMGET, 0), TIOCM_DTR | TIOCM_RTS | TIOCM_RI | TIOCM_DSR | TIOCM_CAR);
    request(TIOCMSET, TIOCM_RTS | TIOCM_CTS);
    EXPECT_EQ(line.modemLines() & ~TIOCM_RI, TIOCM_RTS | TIOCM_DSR | TIOCM_CAR) << "CTS is read";
    request(TIOCMBIS, TIOCM_DTR);
    request(TIOCMBIC, TIOCM_RTS);
    EXPECT_EQ(line.modemLines() & (TIOCM_DTR | TIOCM_RTS), TIOCM_DTR);
    EXPECT_EQ(tcsendbreak(fd, 0), 0);
    EXPECT_EQ(terminal.journal().history("barcode"), "break");

    // The last close drops the outputs, unless the settings keep them.
    const int second = open(Path, O_RDWR);
    close(fd);
    EXPECT_TRUE(line.modemLines() & TIOCM_DTR);
    close(second);
    EXPECT_FALSE(line.modemLines() & TIOCM_DTR);
    fd = openRaw();
    termios kept = line.attributes();
    kept.c_cflag &= ~static_cast<tcflag_t>(HUPCL);
    tcsetattr(fd, TCSANOW, &kept);
    close(std::exchange(fd, -1));
    EXPECT_TRUE(line.modemLines() & TIOCM_DTR);
}

TEST_F(SerialLineTest, ADrainEndsWhenTheFarEndHasTakenEveryByte) {
    peer.block(true);
    EXPECT_EQ(write(fd, "first", 5), 5);
    EXPECT_TRUE(peer.gets("first"));
    EXPECT_EQ(write(fd, "second", 6), 6);
    std::atomic<bool> isFree{false};
    std::thread drain([&] {
        EXPECT_EQ(tcdrain(fd), 0);
        EXPECT_TRUE(isFree);
        EXPECT_EQ(peer.got(), "firstsecond");
    });
    std::thread change([&] {
        const termios same = line.attributes();
        EXPECT_EQ(tcsetattr(fd, TCSADRAIN, &same), 0);
        EXPECT_TRUE(isFree);
    });
    for (int i = 0; i < 20; ++i)
        sim::pauseBriefly();
    isFree = true;
    peer.block(false);
    drain.join();
    change.join();
}

TEST_F(SerialLineTest, AFlushDiscardsWhatIsOnItsWay) {
    line.send("unread");
    EXPECT_TRUE(sim::eventually([&] { return pendingInput(fd) == 6; }, Limit));
    line.send("just sent");
    EXPECT_EQ(tcflush(fd, TCIFLUSH), 0);
    line.send("read");
    EXPECT_EQ(readText(4), "read");

    peer.block(true);
    EXPECT_EQ(write(fd, "taken", 5), 5);
    EXPECT_TRUE(peer.gets("taken"));
    EXPECT_EQ(write(fd, "lost", 4), 4);
    for (int i = 0; i < 5; ++i)
        sim::pauseBriefly();  // wherever the system keeps them then
    EXPECT_EQ(tcflush(fd, TCOFLUSH), 0);
    EXPECT_EQ(tcdrain(fd), 0) << "nothing to wait for";
    EXPECT_EQ(write(fd, "sent", 4), 4);
    peer.block(false);
    EXPECT_EQ(tcdrain(fd), 0);
    EXPECT_TRUE(peer.gets("takensent"));
}

TEST_F(SerialLineTest, ACancelledWriterLeavesTheDrainInOrder) {
    peer.block(true);
    EXPECT_EQ(write(fd, "x", 1), 1);
    EXPECT_TRUE(peer.gets("x"));
    const std::string large(1 << 20, 'y');  // more than the line holds
    std::thread writer([&] { write(fd, large.data(), large.size()); });
    pollfd room{fd, POLLOUT, 0};
    EXPECT_TRUE(sim::eventually([&] { return poll(&room, 1, 0) == 0; }, Limit)) << "it is stuck";
    pthread_cancel(writer.native_handle());
    writer.join();
    std::thread drain([&] { EXPECT_EQ(tcdrain(fd), 0); });
    peer.block(false);
    drain.join();
    EXPECT_LT(peer.got().size(), large.size());
}

TEST_F(SerialLineTest, BytesSentWhileNobodyListensAreLostAndTheOthersUnchanged) {
    close(fd);
    line.send("to nobody");
    fd = openRaw();
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    line.send(all);
    EXPECT_EQ(readText(all.size()), all);
    EXPECT_EQ(write(fd, all.data(), all.size()), 256);
    EXPECT_TRUE(peer.gets(all));
    line.send("left");
    EXPECT_TRUE(sim::eventually([&] { return pendingInput(fd) == 4; }, Limit));
    close(fd);
    fd = openRaw();
    EXPECT_EQ(pendingInput(fd), 0) << "was for the one before";
}

TEST_F(SerialLineTest, WhatIsSentLaterComesInTheOrderItWasAskedFor) {
    terminal.clock().setSpeed(10);
    const auto begin = terminal.clock().monotonic();
    line.send("one ", 400ms);
    line.send("two ", 200ms);  // not before the first
    line.send("three ");
    line.send("four", 600ms);
    EXPECT_EQ(readText(14), "one two three ");
    EXPECT_GE(terminal.clock().monotonic() - begin, 400ms);
    EXPECT_EQ(readText(4), "four");
    EXPECT_GE(terminal.clock().monotonic() - begin, 600ms);
    line.send("now");
    EXPECT_EQ(readText(3), "now");
}

TEST_F(SerialLineTest, AHangUpEndsEveryWaitAndANewOpenWorks) {
    peer.block(true);
    EXPECT_EQ(write(fd, "z", 1), 1);
    EXPECT_TRUE(peer.gets("z"));
    std::thread drain([&] { EXPECT_EQ(tcdrain(fd), -1); });
    std::thread wait([&] {
        pollfd file{fd, POLLIN, 0};
        EXPECT_EQ(poll(&file, 1, -1), 1);
        EXPECT_TRUE(file.revents & POLLHUP);
    });
    sim::pauseBriefly();
    line.hangUp();
    drain.join();
    wait.join();
    peer.block(false);
    char byte = 0;
    termios same = line.attributes();
    EXPECT_LE(read(fd, &byte, 1), 0);
    for (const auto result :
         {write(fd, "x", 1), ssize_t(tcgetattr(fd, &same)), ssize_t(tcsetattr(fd, 0, &same)),
          ssize_t(tcdrain(fd)), ssize_t(tcsendbreak(fd, 0)), ssize_t(ioctl(fd, TIOCMGET, &byte))})
        EXPECT_EQ(result, -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_FALSE(line.isOpen());

    const int hungUp = std::exchange(fd, openRaw());
    EXPECT_EQ(close(hungUp), 0);
    EXPECT_TRUE(line.isOpen()) << "the old open is not this line's any more";
    line.send("back");
    EXPECT_EQ(readText(4), "back");
    EXPECT_EQ(write(fd, "again", 5), 5);
    EXPECT_TRUE(peer.gets("zagain"));
}

TEST_F(SerialLineTest, APeerThatIsReplacedIsNotCalledAnyMore) {
    for (int i = 0; i < 50; ++i) {
        Peer shortLived;
        line.connect(&shortLived);
        EXPECT_EQ(write(fd, "bytes", 5), 5);
        line.connect(&peer);
    }
    EXPECT_EQ(tcdrain(fd), 0);
    EXPECT_EQ(write(fd, "!", 1), 1);
    EXPECT_TRUE(
        sim::eventually([&] { return !peer.got().empty() && peer.got().back() == '!'; }, Limit));
}

TEST_F(SerialLineTest, TheSimulatorTakesNoSignalOfTheProgram) {
    static std::atomic<int> taken;
    taken = 0;
    struct sigaction count {
    }, before{};
    count.sa_handler = [](int) { ++taken; };
    sigaction(SIGUSR2, &count, &before);
    sigset_t blocked, old, pending;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &blocked, &old);
    EXPECT_EQ(kill(getpid(), SIGUSR2), 0);
    EXPECT_EQ(write(fd, "x", 1), 1);
    EXPECT_TRUE(peer.gets("x")) << "the line's thread has run";
    EXPECT_EQ(sigpending(&pending), 0);
    EXPECT_TRUE(sigismember(&pending, SIGUSR2));
    EXPECT_EQ(taken, 0);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    EXPECT_EQ(taken, 1);
    sigaction(SIGUSR2, &before, nullptr);
}

}  // namespace
