// The channel: the line, commands and their answers, MUX frames.

#include "bluetooth/BlueGigaBluetoothModule.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "bluetooth/BluetoothSPPConnection.h"
#include "bluetooth/IwrapProtocol.h"
#include "io/NoCancellation.h"

namespace {

constexpr unsigned ReceiveSize = 1024;
constexpr unsigned SendSize = 128;
constexpr int CommandMs = 1000;
constexpr unsigned LineEnd = 2;

constexpr char MuxOn[] = "SET CONTROL MUX 1";
constexpr char MuxOff[] = "SET CONTROL MUX 0";

unsigned char byteAt(const char* buffer, unsigned at) {
    return static_cast<unsigned char>(buffer[at]);
}

}  // namespace

// The last one is a command: with the module's echo on, its echo is the answer.
const BlueGigaBluetoothModule::FinalLine BlueGigaBluetoothModule::answers[] = {
    {"READY.", ANSWER_OK},
    {"SYNTAX ERROR", ANSWER_ERROR},
    {"INQUIRY 0", ANSWER_ERROR},
    {MuxOn, ANSWER_OK},
    {nullptr, ANSWER_NONE}};

BlueGigaBluetoothModule::BlueGigaBluetoothModule(const char* devicePath) : device(devicePath) {
    pModule = this;
}

BlueGigaBluetoothModule::~BlueGigaBluetoothModule() {
    if (!port)
        return;  // the lock may be held for good
    const io::NoCancellation scope;
    std::shared_ptr<BluetoothPort> closing;
    {
        const ExchangeGuard held(driverLock);
        closing = std::move(port);
    }
}

bool BlueGigaBluetoothModule::open() {
    if (std::atomic_load(&port))
        return false;
    driverLock.lock();
    if (port) {  // opened by another thread meanwhile
        driverLock.unlock();
        return false;
    }
    auto opened = std::make_shared<BluetoothPort>();
    if (!opened->open(device.c_str()))
        return false;  // the lock stays held: nothing talks to a module that has no line
    opened->setSpeed(iwrap::Baud);
    opened->setFlowControl(S_FLOW_NONE);
    opened->setCharBits(8);
    opened->setStopBits(1);
    opened->setParity(S_PARITY_NONE);
    std::atomic_store(&port, opened);
    opened->initReader(this);
    driverLock.unlock();
    return true;
}

bool BlueGigaBluetoothModule::close() {
    // Joins the reader when it goes, after the lock has: the reader may be waiting for it.
    std::shared_ptr<BluetoothPort> closing;
    const ExchangeGuard held(driverLock);
    if (port && !port->close())
        return false;
    closing = std::atomic_exchange(&port, {});
    return true;
}

bool BlueGigaBluetoothModule::setEnabled(bool enable) {
    enabled = enable;
    return true;
}

bool BlueGigaBluetoothModule::writeCommand(const char* data, unsigned int len, int link) {
    if (!port)
        return false;
    if (!isMuxOn) {
        const int64_t written = port->write(data, len);
        return written + port->write("\r", 1) == static_cast<int64_t>(len) + 1;
    }
    char frame[SendSize + 1];
    const unsigned size = createMuxFrame(frame, SendSize, data, len, link);
    return size > 0 && port->write(frame, size) == static_cast<int>(size);
}

bool BlueGigaBluetoothModule::readAnswer(std::string* out, int timeoutMs) {
    if (!port)
        return false;
    char buffer[ReceiveSize + 1] = {};
    unsigned total = 0;
    if (!port->isInputPending(timeoutMs))
        return false;
    for (;;) {
        if (!port->isInputPending(timeoutMs) || total >= ReceiveSize)
            return true;
        const int count = port->readData(buffer + total, ReceiveSize - total);
        if (count <= 0)
            return total > 0;  // the line is gone: what has come is all
        total += static_cast<unsigned>(count);
        buffer[total] = '\0';
        if (byteAt(buffer, 0) == iwrap::StartByte)
            isMuxOn = true;  // the module has switched, even unasked

        // Every pass looks at all that has come, and adds it to what the ones before have added.
        if (!isMuxOn) {
            takeText(out, buffer, static_cast<unsigned>(std::strlen(buffer)));
        } else {
            const bool isWhole =
                total >= iwrap::FrameOverhead &&
                total - iwrap::FrameOverhead >= byteAt(buffer, iwrap::LengthOffset);
            if (!isWhole)
                continue;
            if (parseMuxFrame(out, buffer, 0, total) == 0)
                return true;
        }
        if (port->answerType != ANSWER_NONE)
            return true;
    }
}

unsigned int BlueGigaBluetoothModule::setAnswerType(const char* text, unsigned int len) {
    int type = ANSWER_NONE;
    unsigned length = 0;
    for (const FinalLine* line = answers; line->type != ANSWER_NONE && length == 0; ++line) {
        const auto size = static_cast<unsigned>(std::strlen(line->text));
        if (len >= size + LineEnd &&
            std::memcmp(text + len - LineEnd - size, line->text, size) == 0) {
            type = line->type;
            length = size + LineEnd;
        }
    }
    if (port)
        port->answerType = type;
    return length;
}

int BlueGigaBluetoothModule::getAnswerType() {
    const std::shared_ptr<BluetoothPort> used = std::atomic_load(&port);
    return used ? used->answerType.load() : ANSWER_NONE;
}

unsigned int BlueGigaBluetoothModule::createMuxFrame(char* buf, unsigned int bufSize,
                                                     const char* data, unsigned int len, int link) {
    if (bufSize < iwrap::PayloadOffset || len > bufSize - iwrap::PayloadOffset ||
        len > iwrap::LongestPayload)
        return 0;
    const auto linkByte = static_cast<unsigned char>(link);
    std::memset(buf, 0, bufSize);
    buf[0] = static_cast<char>(iwrap::StartByte);
    buf[iwrap::LinkOffset] = static_cast<char>(linkByte);
    buf[iwrap::LengthOffset] = static_cast<char>(len);
    if (len > 0)
        std::memcpy(buf + iwrap::PayloadOffset, data, len);
    buf[iwrap::PayloadOffset + len] = static_cast<char>(linkByte ^ iwrap::Complement);
    return len + iwrap::FrameOverhead;
}

unsigned int BlueGigaBluetoothModule::parseMuxFrame(std::string* out, char* buf, unsigned int pos,
                                                    unsigned int end) {
    for (;;) {
        const void* const start =
            pos < end ? std::memchr(buf + pos, iwrap::StartByte, end - pos) : nullptr;
        if (!start)
            return pos;
        const auto at = static_cast<unsigned>(static_cast<const char*>(start) - buf);
        // What is not there yet counts as 0. That is the trailer of the command link: an answer
        // goes on, and is found whole when the rest has come. A link's data is not in order then.
        const auto octet = [&](unsigned index) { return index < end ? byteAt(buf, index) : 0U; };
        const unsigned link = octet(at + iwrap::LinkOffset);
        if (link > iwrap::HighestLink && link != iwrap::CommandLink)
            return 0;
        const unsigned length = octet(at + iwrap::LengthOffset);
        const unsigned begin = at + iwrap::PayloadOffset;
        if (octet(begin + length) != (link ^ iwrap::Complement))
            return 0;
        if (link != iwrap::CommandLink) {
            deliver(link, buf + begin, length);
        } else if (begin + length <= end) {
            takeText(out, buf + begin, length);
        } else {
            char filled[iwrap::LongestPayload] = {};
            std::copy(buf + std::min(begin, end), buf + end, filled);
            takeText(out, filled, length);
        }
        pos = at + length + iwrap::FrameOverhead;
    }
}

/// Notes how a text ends, and appends it without a final line.
void BlueGigaBluetoothModule::takeText(std::string* out, const char* text, unsigned int len) {
    const unsigned finalLine = setAnswerType(text, len);
    if (out)
        out->append(text, len - finalLine);
}

/// To the first connection that has the link; without one the data is dropped.
void BlueGigaBluetoothModule::deliver(unsigned int link, char* data, unsigned int len) {
    const MutexGuard held(registryLock);
    for (BluetoothSPPConnection* const connection : connections) {
        if (connection && getLocalPort(connection) == static_cast<int>(link)) {
            sendIncomingData(connection, data, len);
            return;
        }
    }
}

bool BlueGigaBluetoothModule::enableMUX() {
    if (isMuxOn)
        return true;
    const ExchangeGuard held(driverLock);
    std::string answer;
    if (writeCommand(MuxOn, sizeof MuxOn - 1, iwrap::CommandLink))
        readAnswer(&answer, CommandMs);
    if (getAnswerType() != ANSWER_OK)
        return false;
    isMuxOn = true;
    return true;
}

bool BlueGigaBluetoothModule::disableMUX() {
    const ExchangeGuard held(driverLock);
    if (writeCommand(MuxOff, sizeof MuxOff - 1, iwrap::CommandLink))
        readAnswer(nullptr, CommandMs);
    // Also when nothing could be written: the last answer counts then.
    if (getAnswerType() != ANSWER_OK)
        return false;
    isMuxOn = false;
    return true;
}

void BlueGigaBluetoothModule::pollIncomingData(int timeoutMs) {
    const ExchangeGuard held(driverLock);
    readAnswer(nullptr, timeoutMs);
}

bool BlueGigaBluetoothModule::sendSPPData(int id, const void* data, unsigned int len) {
    std::shared_ptr<BluetoothPort> used;  // another thread may close the line meanwhile
    {
        const ExchangeGuard held(driverLock);
        if (!writeCommand(static_cast<const char*>(data), len, linkAt(id, AnyLink).value_or(0)))
            return false;
        used = port;
    }
    used->startRead();
    return true;
}
