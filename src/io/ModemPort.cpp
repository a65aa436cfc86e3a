#include "io/ModemPort.h"

#include <cstring>
#include <string_view>

namespace {

constexpr int NoCarrierWaits = 50;
constexpr int NoCarrierWaitMs = 100;

/// The code of the line that ends `text`, which begins at the line feed before it or, without one,
/// at the beginning of the text.
int codeOfLastLine(std::string_view text) {
    const size_t lineFeed = text.substr(0, text.size() - 1).rfind('\n');
    const std::string_view line = lineFeed == std::string_view::npos ? text : text.substr(lineFeed);
    for (int code = 0; ModemPort::modemAnswerStrings[code]; ++code) {
        if (line.substr(0, ModemPort::modemAnswerSizes[code]) ==
            ModemPort::modemAnswerStrings[code])
            return code;
    }
    return ModemPort::None;
}

}  // namespace

const char* const ModemPort::modemAnswerStrings[] = {
    "\nOK\r\n",         "\nCONNECT\r\n", "\nRING\r\n",
    "\nNO CARRIER\r\n", "\nERROR\r\n",   "\nNO ANSWER\r\n",
    "\n+CMS ERROR:",    "\n+CME ERROR:", nullptr};

const unsigned ModemPort::modemAnswerSizes[] = {5, 10, 7, 13, 8, 12, 12, 12};

int ModemPort::read(char* buf, unsigned int size, int timeoutMs) {
    lastAnswer = None;
    if (size == 0 || !isInputPending(timeoutMs))
        return 0;
    for (unsigned count = 0;;) {
        if (!isInputPending(timeoutMs))
            return static_cast<int>(count);
        // A failed read counts as a NUL: a line that fails for good ends with a full buffer.
        char byte = '\0';
        readData(&byte, 1);
        if (buf)
            buf[count] = byte;
        ++count;
        if (buf && byte == '\n')
            lastAnswer = codeOfLastLine({buf, count});
        if (lastAnswer != None || count >= size)
            return static_cast<int>(count);
    }
}

int ModemPort::write(char const* text) {
    return text ? writeData(text, static_cast<unsigned>(std::strlen(text))) : 0;
}

bool ModemPort::checkNoCarrier(char c) {
    const char* const line = modemAnswerStrings[NoCarrier];
    if (c != line[noCarrierPos]) {
        noCarrierPos = c == line[0] ? 1 : 0;
        return false;
    }
    ++noCarrierPos;
    if (noCarrierPos < modemAnswerSizes[NoCarrier])
        return false;
    noCarrierPos = 0;
    return true;
}

bool ModemPort::waitNoCarrier() {
    for (int wait = 0; wait < NoCarrierWaits; ++wait) {
        for (int left = numInputPending(NoCarrierWaitMs); left > 0; --left) {
            char byte = '\0';
            if (readData(&byte, 1) != 1)
                break;
            if (checkNoCarrier(byte))
                return true;
        }
    }
    return false;
}
