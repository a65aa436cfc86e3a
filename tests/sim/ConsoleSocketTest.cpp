#include "sim/console/ConsoleSocket.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "io/FileDescriptor.h"
#include "support/TerminalTest.h"

namespace {

class ConsoleSocketTest : public test::TerminalTest {
protected:
    io::FileDescriptor client() const {
        return io::FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    }

    bool connect(const io::FileDescriptor& client) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        return ::connect(client.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }

    /// What the console answers to a client that sends this and no more.
    std::string answerTo(const std::string& sent, const io::FileDescriptor& client) const {
        EXPECT_EQ(::send(client.get(), sent.data(), sent.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(sent.size()));
        ::shutdown(client.get(), SHUT_WR);
        return test::readFrom(client.get(), 8192);
    }

    std::string answerTo(const std::string& sent) const {
        const io::FileDescriptor own = client();
        return connect(own) ? answerTo(sent, own) : "no console";
    }

    const std::string path = terminal.files().hostPath("/.console");
    sim::ConsoleSocket console{terminal, path};
    std::future<bool> served = test::inBackground([this] { return console.serve(); });
};

TEST_F(ConsoleSocketTest, OnlyAWholeLineIsCarriedOut) {
    EXPECT_EQ(answerTo("battery 3600\n"), "ok\n");
    const std::string battery = terminal.files().read(terminal.battery().path());
    for (const std::string& part :
         {std::string("battery 36"), std::string(), "battery 3700" + std::string(5000, ' ') + "\n"})
        EXPECT_EQ(answerTo(part).substr(0, 7), "failed\n") << part.size();
    EXPECT_EQ(terminal.files().read(terminal.battery().path()), battery);
    EXPECT_EQ(answerTo("quit\n"), "ok\n");
    EXPECT_TRUE(served.get());
}

TEST_F(ConsoleSocketTest, AnApplicationWithoutDescriptorsToSpareDoesNotEndIt) {
    // A thread that waits in accept4() has a descriptor already: the second client gets none.
    const io::FileDescriptor early = client(), late = client();
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{STDERR_FILENO + 1, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_TRUE(connect(early) && connect(late));
    EXPECT_EQ(::send(early.get(), "?\n", 2, MSG_NOSIGNAL), 2);
    const sim::HostDeadline soonOver(std::chrono::milliseconds(50));
    while (!soonOver.passed() && !test::isDone(served))
        sim::pauseBriefly();
    setrlimit(RLIMIT_NOFILE, &before);
    ASSERT_FALSE(test::isDone(served));
    EXPECT_EQ(test::readFrom(early.get(), 7), "failed\n") << "no such command";
    EXPECT_EQ(answerTo("quit\n", late), "ok\n");
    EXPECT_TRUE(served.get());
}

}  // namespace
