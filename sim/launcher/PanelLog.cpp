#include "sim/launcher/PanelLog.h"

namespace launcher {

void PanelLog::add(std::string_view bytes) {
    constexpr size_t LongestLine = 1000;
    for (const char byte : bytes) {
        const bool isEnd = byte == '\n' || partial.size() == LongestLine;
        if (isEnd) {
            complete.push_back(partial);
            partial.clear();
            if (complete.size() > MostLines)
                complete.pop_front();
        }
        const auto code = static_cast<unsigned char>(byte);
        if (code >= ' ' && code != 0x7F)
            partial += byte;
        else if (byte == '\t')
            partial += ' ';
    }
}

}  // namespace launcher
