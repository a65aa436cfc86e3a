#pragma once

#include <string>

#include "gui/GuiWindow.h"
#include "network/NetworkEventListener.h"
#include "power/SystemEvents.h"
#include "sim/Journal.h"

namespace test {

/// Notes in the journal what a connection tells: as its listener "net: up", "net: signal 77" and
/// "net: status Some text", as a window by system events "net: event 4 up", "net: event 3 77" and
/// "net: event 1 Some text".
class NetworkWindow : public GuiWindow, public NetworkEventListener {
public:
    explicit NetworkWindow(sim::Journal& terminalJournal)
        : GuiWindow(0), journal(terminalJournal) {}

    void networkEvent(NetworkEvent event) override { note(Names[event]); }
    void signalQuality(int percent) override { note("signal " + std::to_string(percent)); }
    void errorMessage(const char* text) override { note(std::string("error ") + text); }
    void statusMessage(const char* text) override { note(std::string("status ") + text); }

    void onSystemEvent(int code, void* data) override {
        if (code < 1 || code > 4)
            return;
        const auto number = events::numberIn(data);
        note("event " + std::to_string(code) + " " +
             (code < 3    ? static_cast<const char*>(data)
              : code == 3 ? std::to_string(number)
                          : Names[number]));
    }

private:
    static constexpr const char* Names[] = {"down", "connecting", "up"};

    void note(const std::string& text) { journal.note("net", text); }

    sim::Journal& journal;
};

}  // namespace test
