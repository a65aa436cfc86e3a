// The modem port's reader: never past its buffer, ends at the first final result code, and the
// watch for the end of a call sees every such line once. The first byte of the input is the
// buffer's size.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "io/ModemPort.h"
#include "tests/support/FedPort.h"

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

/// The index of the code whose line ends `text`, found in another way than the port does: the code
/// stands at the last line feed but one, or at the very beginning.
int codeAtEnd(const std::string& text) {
    if (text.empty() || text.back() != '\n')
        return -1;
    for (int code = 0; ModemPort::modemAnswerStrings[code]; ++code) {
        const std::string line = ModemPort::modemAnswerStrings[code];
        const size_t at = text.rfind(line);
        if (at != std::string::npos && text.find('\n', at + 1) == text.size() - 1)
            return code;
    }
    return -1;
}

void checkRead(std::string_view bytes, unsigned size) {
    test::FedPort<ModemPort> port(bytes);
    while (port.left() > 0) {
        const size_t before = bytes.size() - port.left();
        std::vector<char> buffer(size);
        const int count = port.read(buffer.data(), size, 100);
        require(count >= 0 && static_cast<unsigned>(count) <= size);
        const std::string text(buffer.data(), static_cast<size_t>(count));
        require(text == bytes.substr(before, text.size()));
        require(port.lastAnswer == codeAtEnd(text));
        require(port.lastAnswer != ModemPort::None || text.size() == size || port.left() == 0);
        for (size_t length = 1; length < text.size(); ++length)
            require(codeAtEnd(text.substr(0, length)) == ModemPort::None);
    }
}

void checkEndOfCall(std::string_view bytes) {
    const std::string_view line = ModemPort::modemAnswerStrings[ModemPort::NoCarrier];
    size_t expected = 0;
    for (size_t at = bytes.find(line); at != std::string_view::npos;
         at = bytes.find(line, at + line.size()))
        ++expected;
    test::FedPort<ModemPort> port(bytes);
    size_t seen = 0;
    while (port.waitNoCarrier())
        ++seen;
    require(seen == expected && port.left() == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > 1000)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    checkRead(bytes, data[0] == 0 ? 1U : data[0]);
    checkEndOfCall(bytes);
    return 0;
}
