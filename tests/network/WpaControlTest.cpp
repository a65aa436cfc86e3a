#include "network/WpaControl.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "io/FileDescriptor.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using std::string;
using testing::ElementsAre;
using namespace std::chrono_literals;

constexpr char Folder[] = "/tmp/wpa_supplicant.ctrl";
constexpr char Path[] = "/tmp/wpa_supplicant.ctrl/ra0";

/// A daemon's end of the control connections, with every answer given by hand.
class FarEnd {
public:
    FarEnd() {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, Path);
        ::mkdir(Folder, 0700);
        ::unlink(Path);
        socket.reset(::socket(AF_UNIX, SOCK_DGRAM, 0));
        EXPECT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

    /// Waits for a command and remembers who has sent it.
    string receive() {
        char command[512];
        size = sizeof sender;
        const ssize_t length = ::recvfrom(socket.get(), command, sizeof command, 0,
                                          reinterpret_cast<sockaddr*>(&sender), &size);
        return string(command, length < 0 ? 0 : static_cast<size_t>(length));
    }

    /// To the last one who has sent. False when there is no room for more.
    bool send(const string& text) {
        return ::sendto(socket.get(), text.data(), text.size(), MSG_DONTWAIT,
                        reinterpret_cast<sockaddr*>(&sender), size) >= 0;
    }

private:
    io::FileDescriptor socket;
    sockaddr_un sender{};
    socklen_t size = 0;
};

std::vector<string> heardEvents;

void hear(char* text, unsigned length) {
    EXPECT_EQ(std::strlen(text), length);
    heardEvents.emplace_back(text);
}

class WpaControlTest : public test::TerminalTest {
protected:
    WpaControlTest() { heardEvents.clear(); }
    ~WpaControlTest() override { wpa_ctrl_close(control); }

    void open() {
        control = wpa_ctrl_open(Folder, "ra0");
        ASSERT_NE(control, nullptr);
    }

    /// A request with room for `room` bytes of the answer, which what is beyond shows untouched.
    int request(const string& command, unsigned room = 64,
                void (*callback)(char*, unsigned) = nullptr) {
        std::vector<char> buffer(room + 8, '#');
        unsigned length = room;
        const int result =
            wpa_ctrl_request(control, command.data(), static_cast<unsigned>(command.size()),
                             buffer.data(), &length, callback);
        EXPECT_EQ(string(buffer.begin() + room, buffer.end()), "########");
        reply = result == 0 ? string(buffer.data(), length) : "";
        return result;
    }

    /// The same while `play` is the other end.
    int requestWhile(const std::function<void()>& play, unsigned room = 64,
                     void (*callback)(char*, unsigned) = nullptr) {
        auto playing = test::inBackground(play);
        const int result = request("PING", room, callback);
        playing.get();
        return result;
    }

    /// The local sockets there are.
    long localFiles() {
        long count = 0;
        for (const auto& entry :
             std::filesystem::directory_iterator(terminal.files().hostPath("/tmp")))
            count += entry.path().filename().string().compare(0, 9, "wpa_ctrl_") == 0 ? 1 : 0;
        return count;
    }

    FarEnd daemon{};
    WPA_CONTROL* control = nullptr;
    string reply;
};

TEST_F(WpaControlTest, AFailedOpeningLeavesNeitherDescriptorNorFile) {
    const string longest(90, 'x');
    const struct {
        const char *folder, *name;
        std::function<void()> prepare;
    } cases[] = {
        {nullptr, "ra0", {}},
        {Folder, nullptr, {}},
        {Folder, "ra1", {}},
        {"/tmp/wpa_supplicant.ctrl/none", "ra0", {}},
        {Folder, longest.c_str(), {}},
        {Folder, "ra0", [&] { terminal.faults().fail("socket", "", EMFILE); }},
        {Folder, "ra0", [&] { terminal.faults().fail("bind", "", EACCES); }},
        {Folder, "ra0", [&] { terminal.faults().fail("bind", "", EADDRINUSE, 0, 2); }},
        {Folder, "ra0", [&] { terminal.faults().fail("connect", "", ECONNREFUSED); }},
    };
    const long descriptors = test::openDescriptors();
    for (const auto& tried : cases) {
        terminal.faults().clear();
        if (tried.prepare)
            tried.prepare();
        EXPECT_EQ(wpa_ctrl_open(tried.folder, tried.name), nullptr);
        EXPECT_EQ(test::openDescriptors(), descriptors);
        EXPECT_EQ(localFiles(), 0);
    }
    wpa_ctrl_close(nullptr);
}

TEST_F(WpaControlTest, EachConnectionHasAPathOfItsOwnAndTakesOverAStaleOne) {
    open();
    EXPECT_STREQ(control->remote.sun_path, Path);
    const string first = control->local.sun_path;
    const size_t dash = first.rfind('-') + 1;
    ASSERT_EQ(first.substr(0, dash), "/tmp/wpa_ctrl_" + std::to_string(getpid()) + "-");
    const int number = std::stoi(first.substr(dash));
    const string second = first.substr(0, dash) + std::to_string(number + 1);
    terminal.files().write(second, "left behind");
    WPA_CONTROL* const other = wpa_ctrl_open(Folder, "ra0");
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->local.sun_path, second);
    EXPECT_EQ(localFiles(), 2);

    char buffer[8];
    unsigned length = sizeof buffer;
    auto playing = test::inBackground([&] {
        EXPECT_EQ(daemon.receive(), "SECOND");
        daemon.send("two");
        EXPECT_EQ(daemon.receive(), "PING");
        daemon.send("one");
    });
    EXPECT_EQ(wpa_ctrl_request(other, "SECOND", 6, buffer, &length, nullptr), 0);
    EXPECT_EQ(string(buffer, length), "two");
    wpa_ctrl_close(other);
    EXPECT_EQ(localFiles(), 1) << "the other's stays";
    EXPECT_EQ(request("PING"), 0);
    EXPECT_EQ(reply, "one");
    playing.get();
    wpa_ctrl_close(control);
    control = nullptr;
    EXPECT_EQ(localFiles(), 0);
    WPA_CONTROL* const third = wpa_ctrl_open(Folder, "none");
    EXPECT_EQ(third, nullptr);
    open();
    EXPECT_EQ(control->local.sun_path, first.substr(0, dash) + std::to_string(number + 3))
        << "every opening counts";
}

TEST_F(WpaControlTest, AReplyComesWholeOrCutToItsRoom) {
    const struct {
        string sent;
        unsigned room;
        string received;
    } cases[] = {{"OK\n", 64, "OK\n"}, {"FAIL\n", 3, "FAI"},
                 {"", 64, ""},         {string("a\0b", 3), 3, string("a\0b", 3)},
                 {"OK", 0, ""},        {string(3000, 'x'), 2048, string(2048, 'x')},
                 {" <3>", 64, " <3>"}};
    open();
    for (const auto& tried : cases) {
        EXPECT_EQ(requestWhile(
                      [&] {
                          EXPECT_EQ(daemon.receive(), "PING");
                          EXPECT_TRUE(daemon.send(tried.sent));
                      },
                      tried.room),
                  0);
        EXPECT_EQ(reply, tried.received);
    }
}

TEST_F(WpaControlTest, EventsBeforeTheReplyAreHandedOverCutToTheirRoomAndSkipped) {
    open();
    const auto play = [&] {
        daemon.receive();
        for (const char* text : {"<", "<3>", "<3>4567", "<3>45678", "<3>456789 and more", "OK"})
            EXPECT_TRUE(daemon.send(text));
    };
    EXPECT_EQ(requestWhile(play, 8, hear), 0);
    EXPECT_EQ(reply, "OK");
    EXPECT_THAT(heardEvents, ElementsAre("<", "<3>", "<3>4567", "<3>4567", "<3>4567"));
    EXPECT_EQ(requestWhile(play, 8), 0) << "nobody listens";
    EXPECT_EQ(reply, "OK");
    heardEvents.clear();
    EXPECT_EQ(requestWhile(
                  [&] {
                      daemon.receive();
                      daemon.send("<3>");
                      daemon.send("O");
                  },
                  1, hear),
              0);
    EXPECT_THAT(heardEvents, ElementsAre(""));
}

TEST_F(WpaControlTest, WithoutAReplyTheWaitEndsAfterTwoSecondsOrWithASignal) {
    open();
    terminal.clock().setSpeed(10);
    const auto begin = terminal.clock().monotonic();
    EXPECT_EQ(requestWhile([&] { daemon.receive(); }), -2);
    EXPECT_GE(terminal.clock().monotonic() - begin, 2s);

    terminal.clock().setSpeed(1);
    struct sigaction action {};
    struct sigaction former {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, &former);
    const pthread_t waiter = pthread_self();
    std::atomic<bool> ended{false};
    auto signaller = test::inBackground([&] {
        daemon.receive();
        while (!ended) {
            pthread_kill(waiter, SIGUSR1);
            sim::pauseBriefly();
        }
    });
    const auto elapsed = [&] {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(request("PING"), -2);
        return (std::chrono::steady_clock::now() - start) / 1ms;
    }();
    ended = true;
    signaller.get();
    EXPECT_LT(elapsed, 1900);
    sigaction(SIGUSR1, &former, nullptr);
}

TEST_F(WpaControlTest, EndlessEventsKeepNoRequestWaitingForLong) {
    open();
    terminal.clock().setSpeed(10);
    const auto begin = terminal.clock().monotonic();
    std::atomic<bool> ended{false};
    auto flooding = test::inBackground([&] {
        daemon.receive();
        while (!ended) {
            daemon.send("<3>CTRL-EVENT-SCAN-RESULTS");
            sim::pauseBriefly();
        }
    });
    EXPECT_EQ(request("PING"), -2);
    ended = true;
    flooding.get();
    EXPECT_GE(terminal.clock().monotonic() - begin, 10s);
    EXPECT_LT(terminal.clock().monotonic() - begin, 60s);
}

TEST_F(WpaControlTest, ADaemonThatGoesFailsTheRequestAndARestartedOneNeedsANewConnection) {
    open();
    terminal.clock().setSpeed(10);
    EXPECT_EQ(requestWhile([&] {
                  daemon.receive();
                  daemon = FarEnd();
              }),
              -2)
        << "gone with the command";
    EXPECT_EQ(request("PING"), -1) << "another socket on the same path";
    wpa_ctrl_close(control);
    open();
    EXPECT_EQ(requestWhile([&] {
                  daemon.receive();
                  daemon.send("PONG");
              }),
              0);
    EXPECT_EQ(reply, "PONG");
}

TEST_F(WpaControlTest, ADaemonThatHasStoppedReadingFailsTheRequestInTime) {
    open();
    terminal.clock().setSpeed(20);
    // Commands that nobody takes pile up in its queue: each is given up, until one finds no room.
    int result = -2;
    for (int sent = 0; sent < 1000 && result == -2; ++sent)
        result = request("PING");
    EXPECT_EQ(result, -1) << "its queue is full";
}

TEST_F(WpaControlTest, WhatCannotBeSentOrHasNowhereToGoIsRefused) {
    open();
    char buffer[4];
    unsigned length = sizeof buffer;
    EXPECT_EQ(wpa_ctrl_request(nullptr, "PING", 4, buffer, &length, nullptr), -1);
    EXPECT_EQ(wpa_ctrl_request(control, nullptr, 4, buffer, &length, nullptr), -1);
    EXPECT_EQ(wpa_ctrl_request(control, "PING", 4, nullptr, &length, nullptr), -1);
    EXPECT_EQ(wpa_ctrl_request(control, "PING", 4, buffer, nullptr, nullptr), -1);
    string longCommand;
    longCommand.resize(10'000'000, 'x');
    EXPECT_EQ(request(longCommand), -1) << "more than a datagram holds";
    EXPECT_EQ(length, sizeof buffer);
}

TEST_F(WpaControlTest, AStartedProgramDoesNotInheritTheConnection) {
    open();
    EXPECT_NE(::fcntl(control->socket, F_GETFD) & FD_CLOEXEC, 0);
}

}  // namespace
