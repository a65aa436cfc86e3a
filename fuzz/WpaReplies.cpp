// Any datagrams as the supplicant's: events, replies, and what is neither.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "network/WpaControl.h"
#include "sim/Terminal.h"

namespace {

constexpr char Folder[] = "/tmp/wpa_supplicant.ctrl";
constexpr size_t MostDatagrams = 8;  // what the system queues for a socket is little more

struct Connection {
    Connection() {
        terminal.files().makeFolder(Folder);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        constexpr char Path[] = "/tmp/wpa_supplicant.ctrl/ra0";
        std::memcpy(address.sun_path, Path, sizeof Path);
        if (::bind(daemon, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            abort();
        control = wpa_ctrl_open(Folder, "ra0");
        if (!control)
            abort();
    }

    void send(const std::string& text) const {
        if (::sendto(daemon, text.data(), text.size(), MSG_DONTWAIT,
                     reinterpret_cast<sockaddr*>(&control->local), sizeof control->local) < 0)
            abort();
    }

    void drain() const {
        char byte = 0;
        for (const int socket : {daemon, control->socket}) {
            while (::recv(socket, &byte, 1, MSG_DONTWAIT) >= 0) {}
        }
    }

    sim::Terminal terminal;
    int daemon = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    WPA_CONTROL* control = nullptr;
};

// NOLINTNEXTLINE(readability-non-const-parameter): what a request takes
void checkEvent(char* text, unsigned length) {
    if (text[length] != '\0' || (length > 0 && text[0] != '<'))
        abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Connection connection;
    if (size == 0)
        return 0;
    // The room for the reply, then each datagram after its length.
    const unsigned room = data[0];
    std::vector<std::string> datagrams;
    for (size_t at = 1; at < size && datagrams.size() < MostDatagrams;) {
        const size_t length = std::min<size_t>(data[at], size - at - 1);
        datagrams.emplace_back(reinterpret_cast<const char*>(data) + at + 1, length);
        at += 1 + length;
    }
    datagrams.emplace_back("OK\n");
    for (const std::string& datagram : datagrams)
        connection.send(datagram);

    const auto* reply = &datagrams[0];
    while (room > 0 && !reply->empty() && (*reply)[0] == '<')
        ++reply;
    const std::string expected = reply->substr(0, room);

    std::vector<char> buffer(room + 1);
    buffer[room] = '#';
    unsigned length = room;
    const int result = wpa_ctrl_request(connection.control, "PING", 4, buffer.data(), &length,
                                        size % 2 ? checkEvent : nullptr);
    if (result != 0 || std::string(buffer.data(), length) != expected || buffer[room] != '#')
        abort();
    connection.drain();
    return 0;
}
