#pragma once

#include <cstdint>
#include <string>

#include "gui/GuiWindow.h"
#include "sim/Journal.h"

namespace test {

constexpr const char* NetworkEventNames[] = {"down", "connecting", "up"};

/// Notes a connection's system events in the journal: "net: event 4 up", "net: event 1 some
/// status", "net: event 3 77".
class NetworkWindow : public GuiWindow {
public:
    explicit NetworkWindow(sim::Journal& terminalJournal)
        : GuiWindow(0), journal(terminalJournal) {}

    void onSystemEvent(int code, void* data) override {
        if (code < 1 || code > 4)
            return;
        const auto number = static_cast<int>(reinterpret_cast<intptr_t>(data));
        const std::string text = code < 3    ? static_cast<const char*>(data)
                                 : code == 3 ? std::to_string(number)
                                             : NetworkEventNames[number];
        journal.note("net", "event " + std::to_string(code) + " " + text);
    }

private:
    sim::Journal& journal;
};

}  // namespace test
