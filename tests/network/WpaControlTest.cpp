#include "network/WpaControl.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "io/FileDescriptor.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using std::string;
using namespace std::chrono_literals;

constexpr char Folder[] = "/tmp/wpa_supplicant.ctrl";

std::vector<string> heardEvents;

void hear(char* text, unsigned length) {
    EXPECT_EQ(std::strlen(text), length);
    heardEvents.emplace_back(text);
}

/// A client whose daemon gives every answer by hand.
struct WpaControlTest : test::TerminalTest {
    WpaControlTest() {
        ::mkdir(Folder, 0700);
        startDaemon();
    }
    ~WpaControlTest() override { wpa_ctrl_close(control); }

    void startDaemon() {
        sockaddr_un address{AF_UNIX, "/tmp/wpa_supplicant.ctrl/ra0"};
        ::unlink(address.sun_path);
        daemon.reset(::socket(AF_UNIX, SOCK_DGRAM, 0));
        const timeval limit{test::HostLimit.count(), 0};
        ::setsockopt(daemon.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        EXPECT_EQ(::bind(daemon.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

    /// The daemon waits for a command, and answers.
    void answer(const std::vector<string>& texts) {
        char command[8];
        clientSize = sizeof client;
        EXPECT_EQ(::recvfrom(daemon.get(), command, sizeof command, 0, clientAddress, &clientSize),
                  4);
        for (const string& text : texts)
            send(text);
    }

    /// ... says something to the last one who has sent a command, if there is room for it.
    void send(const string& text) {
        ::sendto(daemon.get(), text.data(), text.size(), MSG_DONTWAIT, clientAddress, clientSize);
    }

    void open() {
        control = wpa_ctrl_open(Folder, "ra0");
        ASSERT_NE(control, nullptr);
    }

    /// A request with room for `room` bytes of the answer, which what is beyond shows untouched.
    int request(unsigned room = 64, void (*callback)(char*, unsigned) = nullptr) {
        std::vector<char> buffer(room + 8, '#');
        unsigned length = room;
        const int result = wpa_ctrl_request(control, "PING", 4, buffer.data(), &length, callback);
        EXPECT_EQ(string(buffer.begin() + room, buffer.end()), "########");
        reply = result == 0 ? string(buffer.data(), length) : "";
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

    io::FileDescriptor daemon;
    sockaddr_un client{};  // of the daemon
    sockaddr* const clientAddress = reinterpret_cast<sockaddr*>(&client);
    socklen_t clientSize = 0;
    WPA_CONTROL* control = nullptr;
    string reply;
};

TEST_F(WpaControlTest, AFailedOpeningLeavesNeitherDescriptorNorFile) {
    EXPECT_EQ(wpa_ctrl_open(nullptr, "ra0"), nullptr);
    EXPECT_EQ(wpa_ctrl_open(Folder, "ra1"), nullptr);
    EXPECT_EQ(wpa_ctrl_open(Folder, string(90, 'x').c_str()), nullptr);
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
    for (const char* text : {"two", "one"}) {
        const auto answering = test::inBackground([&] { answer({text}); });
        EXPECT_EQ(request(), 0);
        EXPECT_EQ(reply, text);
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
        {{""}, 64, "", {}},
        {{string(3000, 'x')}, 2048, string(2048, 'x'), {}},
        {{"<", "<3>4567", "<3>456789 and more", " <3>"}, 8, " <3>", {"<", "<3>4567", "<3>4567"}},
        {{"<3>", "O"}, 1, "O", {""}}};
    open();
    for (const auto& tried : cases) {
        for (const bool isHeard : {true, false}) {
            const auto answering = test::inBackground([&] { answer(tried.sent); });
            heardEvents.clear();
            EXPECT_EQ(request(tried.room, isHeard ? hear : nullptr), 0);
            EXPECT_EQ(reply, tried.reply);
            EXPECT_EQ(heardEvents, isHeard ? tried.events : std::vector<string>{});
        }
    }
}

TEST_F(WpaControlTest, WithoutAReplyTheWaitEndsEvenWhenEventsComeWithoutEnd) {
    open();
    for (const bool floods : {false, true}) {
        terminal.clock().setSpeed(floods ? 3 : 10);
        std::atomic<bool> ended{false};
        const auto answering = test::inBackground([&] {
            for (answer({}); floods && !ended; sim::pauseBriefly())
                send("<3>CTRL-EVENT-SCAN-RESULTS");
        });
        EXPECT_GE(simulated([&] { EXPECT_EQ(request(), -2); }), (floods ? 10s : 2s) - 10ms);
        ended = true;
    }
}

TEST_F(WpaControlTest, ADaemonThatGoesFailsTheRequestAndARestartedOneNeedsANewConnection) {
    open();
    terminal.clock().setSpeed(10);
    {
        const auto going = test::inBackground([&] {
            answer({});
            startDaemon();
        });
        EXPECT_EQ(request(), -2) << "gone with the command";
    }
    EXPECT_EQ(request(), -1) << "another socket on the same path";
    wpa_ctrl_close(control);
    open();
    terminal.clock().setSpeed(1);
    const auto answering = test::inBackground([&] { answer({"PONG"}); });
    EXPECT_EQ(request(), 0);
    EXPECT_EQ(reply, "PONG");
}

}  // namespace
