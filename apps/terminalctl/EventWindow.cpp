#include "EventWindow.h"

#include <climits>

#include "CommandLine.h"
#include "gui/GuiLibrary.h"
#include "network/NetworkEventListener.h"
#include "power/SystemEvents.h"

namespace ctl {
namespace {

const char* nameOf(NetworkEvent event) {
    switch (event) {
    case NETWORK_DOWN: return "down";
    case NETWORK_CONNECTING: return "connecting";
    case NETWORK_UP: return "up";
    }
    return "unknown";
}

constexpr struct {
    int code;
    const char* text;
    Record (*record)(void* data);
} Events[] = {
    {events::StatusText, "{text}",
     [](void* data) -> Record {
         return {{"event", "status"}, {"text", static_cast<const char*>(data)}};
     }},
    {events::ErrorText, "error: {text}",
     [](void* data) -> Record {
         return {{"event", "error"}, {"text", static_cast<const char*>(data)}};
     }},
    {events::SignalQuality, "signal {percent} %",
     [](void* data) -> Record {
         return {{"event", "signal"}, {"percent", events::numberIn(data)}};
     }},
    {events::NetworkStateChange, "link {state}",
     [](void* data) -> Record {
         return {{"event", "link"},
                 {"state", nameOf(static_cast<NetworkEvent>(events::numberIn(data)))}};
     }},
    {events::BatteryCapacity, "battery {percent} %",
     [](void* data) -> Record {
         return {{"event", "battery"}, {"percent", events::numberIn(data)}};
     }},
    {events::BatteryEmpty, "battery empty",
     [](void*) -> Record {
         return {{"event", "empty"}};
     }},
    {events::Temperature, "temperature {degrees}",
     [](void* data) -> Record {
         const int degrees = events::numberIn(data);
         return {{"event", "temperature"},
                 {"degrees", degrees == INT_MIN ? Value() : Value(degrees)}};
     }},
    {events::ShutdownRequest, "shut down",
     [](void*) -> Record {
         return {{"event", "shutdown"}};
     }},
};

}  // namespace

EventWindow::End EventWindow::run(double seconds) {
    {
        const events::WindowingGuard windowing;
        limit(seconds);
    }
    GuiLibrary::run();
    const events::WindowingGuard windowing;
    return how;
}

void EventWindow::onTimer(int id) {
    if (id == LimitTimer)
        end(TimeOver);
    else
        onTick();
}

void EventWindow::onSystemEvent(int code, void* data) {
    for (const auto& event : Events) {
        if (event.code == code)
            output.show(event.text, event.record(data));
    }
}

void EventWindow::finish() { end(Finished); }

void EventWindow::limit(double seconds) {
    if (seconds <= 0)
        stopTimer(LimitTimer);
    else
        startTimer(millisecondsOf(seconds), LimitTimer);
}

void EventWindow::end(End reason) {
    if (how == Interrupted)  // the first reason counts
        how = reason;
    GuiLibrary::quit();
}

}  // namespace ctl
