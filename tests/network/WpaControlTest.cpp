#include "network/WpaControl.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "io/FileDescriptor.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using std::string;
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

    /// One while `play` is the other end.
    int requestWhile(const std::function<void()>& play) {
        auto playing = test::inBackground(play);
        const int result = request("PING");
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
    EXPECT_EQ(wpa_ctrl_open(nullptr, "ra0"), nullptr);
    EXPECT_EQ(wpa_ctrl_open(Folder, "ra1"), nullptr);
    EXPECT_EQ(wpa_ctrl_open(Folder, longest.c_str()), nullptr);
    const long descriptors = test::openDescriptors();
    for (const char* call : {"socket", "bind", "connect"}) {
        terminal.faults().fail(call, "", EACCES);
        EXPECT_EQ(wpa_ctrl_open(Folder, "ra0"), nullptr) << call;
        EXPECT_EQ(test::openDescriptors(), descriptors);
        EXPECT_EQ(localFiles(), 0);
        terminal.faults().clear();
    }
    wpa_ctrl_close(nullptr);
}

TEST_F(WpaControlTest, EachConnectionHasAPathOfItsOwnAndTakesOverAStaleOne) {
    open();
    const string first = control->local.sun_path;
    const size_t dash = first.rfind('-') + 1;
    ASSERT_EQ(first.substr(0, dash), "/tmp/wpa_ctrl_" + std::to_string(getpid()) + "-");
    const string second = first.substr(0, dash) + std::to_string(std::stoi(first.substr(dash)) + 1);
    terminal.files().write(second, "left behind");
    WPA_CONTROL* other = wpa_ctrl_open(Folder, "ra0");
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->local.sun_path, second);
    std::swap(control, other);
    for (const char* answer : {"two", "one"}) {
        EXPECT_EQ(requestWhile([&] {
                      daemon.receive();
                      daemon.send(answer);
                  }),
                  0);
        EXPECT_EQ(reply, answer);
        wpa_ctrl_close(std::exchange(control, std::exchange(other, nullptr)));
        EXPECT_EQ(localFiles(), control ? 1 : 0) << "the other's stays";
    }
}

TEST_F(WpaControlTest, EventsBeforeTheReplyAreHandedOverAndEverythingIsCutToItsRoom) {
    const struct {
        std::vector<string> sent;
        unsigned room;
        string reply;
        std::vector<string> events;
    } cases[] = {
        {{"FAIL\n"}, 3, "FAI", {}},
        {{""}, 64, "", {}},
        {{string("a\0b", 3)}, 3, string("a\0b", 3), {}},
        {{"OK"}, 0, "", {}},
        {{string(3000, 'x')}, 2048, string(2048, 'x'), {}},
        {{"<", "<3>4567", "<3>456789 and more", " <3>"}, 8, " <3>", {"<", "<3>4567", "<3>4567"}},
        {{"<3>", "O"}, 1, "O", {""}},
    };
    open();
    for (const auto& tried : cases) {
        for (const bool isHeard : {true, false}) {
            auto playing = test::inBackground([&] {
                daemon.receive();
                for (const string& text : tried.sent)
                    EXPECT_TRUE(daemon.send(text));
            });
            heardEvents.clear();
            EXPECT_EQ(request("PING", tried.room, isHeard ? hear : nullptr), 0);
            playing.get();
            EXPECT_EQ(reply, tried.reply);
            EXPECT_EQ(heardEvents, isHeard ? tried.events : std::vector<string>{});
        }
    }
}

TEST_F(WpaControlTest, WithoutAReplyTheWaitEndsEvenWhenEventsComeWithoutEnd) {
    open();
    terminal.clock().setSpeed(10);
    for (const bool floods : {false, true}) {
        const auto begin = terminal.clock().monotonic();
        std::atomic<bool> ended{false};
        auto playing = test::inBackground([&] {
            daemon.receive();
            while (floods && !ended) {
                daemon.send("<3>CTRL-EVENT-SCAN-RESULTS");
                sim::pauseBriefly();
            }
        });
        EXPECT_EQ(request("PING"), -2);
        ended = true;
        playing.get();
        EXPECT_GE(terminal.clock().monotonic() - begin, floods ? 10s : 2s);
    }
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

}  // namespace
