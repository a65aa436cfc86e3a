#include "io/TcpSocket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "io/FileDescriptor.h"
#include "support/Eventually.h"
#include "support/Resources.h"

namespace {

using std::string;

constexpr char Host[] = "127.0.0.1";

bool send(Socket& socket, string text) {
    return socket.writeData(reinterpret_cast<unsigned char*>(text.data()),
                            static_cast<unsigned>(text.size()));
}

/// The far end is a port of this machine.
struct TcpSocketTest : testing::Test {
    TcpSocketTest() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(::bind(listener.get(), any, size), 0);
        EXPECT_EQ(::getsockname(listener.get(), any, &size), 0);
        port = ntohs(address.sin_port);
    }
    ~TcpSocketTest() override { tcp.close(); }

    void connect() {
        EXPECT_EQ(::listen(listener.get(), 4), 0);
        ::close(number = ::dup(0));  // of the next descriptor that is opened
        ASSERT_TRUE(tcp.connect(Host, port));
        peer.reset(::accept(listener.get(), nullptr, nullptr));
    }

    template <class Value> Value option(int level, int which) const {
        Value value{};
        socklen_t size = sizeof value;
        EXPECT_EQ(::getsockopt(number, level, which, &value, &size), 0);
        return value;
    }

    const io::FileDescriptor listener{::socket(AF_INET, SOCK_STREAM, 0)};
    io::FileDescriptor peer;
    int port = 0;
    TcpSocket tcp;
    int number = -1;  // of its descriptor
    unsigned char buffer[16] = {};
};

TEST_F(TcpSocketTest, BytesGoBothWaysUntilThePeerEnds) {
    connect();
    EXPECT_TRUE(tcp.isConnected() && send(tcp, "hello"));
    char heard[6] = {};
    EXPECT_EQ(::recv(peer.get(), heard, 5, MSG_WAITALL), 5);
    EXPECT_STREQ(heard, "hello");
    EXPECT_TRUE(test::soon([&] { return tcp.getPendingOutput() == 0; }));
    EXPECT_EQ(::send(peer.get(), "world", 5, 0), 5);
    EXPECT_TRUE(test::soon([&] { return tcp.getPendingInput() == 5; }));
    EXPECT_EQ(tcp.readData(buffer, 3), 3);
    EXPECT_EQ(tcp.readData(buffer + 3, sizeof buffer - 3), 2);
    EXPECT_STREQ(reinterpret_cast<char*>(buffer), "world");

    peer.reset();
    EXPECT_EQ(tcp.readData(buffer, 1), 0);
    EXPECT_TRUE(test::soon([&] { return !send(tcp, "x"); })) << "and no signal ends us";
    EXPECT_TRUE(tcp.close());
    EXPECT_FALSE(tcp.close() || tcp.isConnected());
}

TEST_F(TcpSocketTest, TimeOutsSetBeforeConnectingHoldAfterIt) {
    EXPECT_TRUE(tcp.setTimeouts(1750, 40));
    connect();
    EXPECT_EQ(option<timeval>(SOL_SOCKET, SO_SNDTIMEO).tv_sec, 1);
    EXPECT_EQ(option<timeval>(SOL_SOCKET, SO_SNDTIMEO).tv_usec / 10'000, 75);
    EXPECT_GE(test::elapsedMs([&] { EXPECT_EQ(tcp.readData(buffer, 1), 0); }), 40);
    EXPECT_TRUE(tcp.setTimeouts(40, 0));
    EXPECT_EQ(option<timeval>(SOL_SOCKET, SO_RCVTIMEO).tv_usec, 0);
    EXPECT_FALSE(send(tcp, string(64 << 20, 'x'))) << "a peer that does not read takes a part";
    EXPECT_GT(tcp.getPendingOutput(), 0);
    EXPECT_FALSE(tcp.setTimeouts(2000, -1));
    EXPECT_EQ(option<timeval>(SOL_SOCKET, SO_SNDTIMEO).tv_sec, 2) << "the other one holds";
    EXPECT_FALSE(tcp.connect(Host, port)) << "kept, and refused again";
    EXPECT_FALSE(tcp.isConnected());
    EXPECT_TRUE(tcp.setTimeouts(30000, 30000) && tcp.connect(Host, port));
}

TEST_F(TcpSocketTest, EachKeepaliveValueHasItsPlace) {
    EXPECT_FALSE(tcp.setKeepalive(1, 1, 1)) << "no socket";
    connect();
    EXPECT_EQ(option<timeval>(SOL_SOCKET, SO_RCVTIMEO).tv_sec, 30);
    EXPECT_EQ(option<timeval>(SOL_SOCKET, SO_SNDTIMEO).tv_sec, 30);
    EXPECT_TRUE(tcp.setKeepalive(70, 8, 9));
    EXPECT_EQ(option<int>(IPPROTO_TCP, TCP_KEEPIDLE), 70);
    EXPECT_EQ(option<int>(IPPROTO_TCP, TCP_KEEPINTVL), 8);
    EXPECT_EQ(option<int>(IPPROTO_TCP, TCP_KEEPCNT), 9);
    EXPECT_EQ(option<int>(SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_FALSE(tcp.setKeepalive(0, 5, 6));
    EXPECT_EQ(option<int>(IPPROTO_TCP, TCP_KEEPCNT), 6) << "set before the refusal";
    EXPECT_EQ(option<int>(IPPROTO_TCP, TCP_KEEPINTVL), 8);
}

TEST_F(TcpSocketTest, WhatCannotBeReachedLeavesTheSocketClosed) {
    const long before = test::openDescriptors();
    EXPECT_FALSE(tcp.connect(Host, port)) << "nobody listens";
    EXPECT_FALSE(tcp.connect("::1", port)) << "IPv4 only";
    EXPECT_FALSE(tcp.connect(Host, -1));
    EXPECT_EQ(test::openDescriptors(), before);
    EXPECT_FALSE(tcp.isConnected() || send(tcp, "x") || tcp.close());
    EXPECT_EQ(tcp.readData(buffer, 1), 0);
    EXPECT_EQ(tcp.getPendingInput() + tcp.getPendingOutput(), 0);
}

}  // namespace
