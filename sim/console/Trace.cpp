#include "sim/console/Trace.h"

#include <cstdio>
#include <ctime>
#include <string_view>

#include "sim/Clock.h"
#include "sim/Text.h"

namespace sim {
namespace {

struct Meaning {
    std::string_view device, text, meaning;
};

constexpr Meaning Meanings[] = {
    {"pwrctrl", "line 0 low", "first LED on"},
    {"pwrctrl", "line 0 high", "first LED off"},
    {"pwrctrl", "line 1 low", "second LED on"},
    {"pwrctrl", "line 1 high", "second LED off"},
    {"pwrctrl", "line 2 low", "barcode engine enabled"},
    {"pwrctrl", "line 2 high", "barcode engine disabled"},
    {"pwrctrl", "line 5 low", "radio module forced off"},
    {"pwrctrl", "line 5 high", "radio module enabled"},
    {"pwrctrl", "line 8 low", "modem DTR raised"},
    {"pwrctrl", "line 8 high", "modem DTR dropped"},
    {"pwrctrl", "line 9 low", "aim light on"},
    {"pwrctrl", "line 9 high", "aim light off"},
    {"pwrctrl", "supply 1 on", "radio and Bluetooth supply"},
    {"pwrctrl", "supply 1 off", "radio and Bluetooth supply"},
    {"pwrctrl", "supply 2 on", "barcode engine supply"},
    {"pwrctrl", "supply 2 off", "barcode engine supply"},
    {"barcode", "command ESC YM CR", "set-up"},
    {"barcode", "command ESC Z CR", "start scanning"},
    {"barcode", "command ESC Y CR", "stop scanning"},
};

std::string meaningOf(const Journal::Entry& entry) {
    for (const Meaning& known : Meanings) {
        if (known.device == entry.device && known.text == entry.text)
            return " (" + std::string(known.meaning) + ")";
    }
    return "";
}

}  // namespace

void Trace::print(const Journal::Entry& entry) {
    if (entry.device == "power")
        last.clear();
    std::string& before = last[entry.device];
    if (before == entry.text)
        return;
    before = entry.text;
    printDated(entry.wall, entry.device + ": " + entry.text + meaningOf(entry));
}

void printDated(std::chrono::nanoseconds wall, const std::string& text) {
    const timespec time = toTimespec(wall);
    tm local{};
    localtime_r(&time.tv_sec, &local);
    printf("%s.%03ld  %s\n", dateText(local).c_str(), time.tv_nsec / 1'000'000, text.c_str());
    fflush(stdout);
}

}  // namespace sim
