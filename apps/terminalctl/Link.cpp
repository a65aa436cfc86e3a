#include "Link.h"

#include <cstdio>

#include "EventWindow.h"
#include "power/SystemEvents.h"

namespace ctl {
namespace {

/// What a link does not have, it leaves empty.
Value known(const std::string& text) { return text.empty() ? Value() : Value(text); }

class LinkWindow : public EventWindow {
public:
    LinkWindow(NetworkConnection& shown, const LinkTimes& givenTimes, Output& shownOn)
        : EventWindow(shownOn), connection(shown), times(givenTimes) {}

    void onSystemEvent(int code, void* data) override {
        EventWindow::onSystemEvent(code, data);
        if (code == events::NetworkStateChange && events::numberIn(data) == NETWORK_UP)
            reachUp();
    }

    /// Runs the event loop from the start of the connection on.
    Status run() {
        const End end = EventWindow::run(times.upWithin);
        const events::WindowingGuard windowing;
        if (hasBeenUp)
            return Done;
        std::fputs(end == TimeOver ? "terminalctl: the link has not come up in time\n"
                                   : "terminalctl: interrupted before the link was up\n",
                   stderr);
        return Nothing;
    }

private:
    /// On the connection's worker, as its operations have to be.
    void reachUp() {
        GENERIC_NETWORK_INFO info;
        if (connection.getNetworkInfo(info))
            output.show("network {name}, channel {channel}, signal {signal} %, address {address}",
                        {{"event", "network"},
                         {"name", known(info.networkName)},
                         {"channel", info.channel},
                         {"signal", info.signalQuality},
                         {"address", known(info.ipAddress)},
                         {"mac", known(info.macAddress)}});
        if (!hasBeenUp)
            limit(times.keptFor);
        hasBeenUp = true;
    }

    NetworkConnection& connection;
    const LinkTimes times;
    bool hasBeenUp = false;  // guarded by the windowing library's lock
};

}  // namespace

void declareTimes(Command command, LinkTimes& times) {
    command.takeSeconds("--timeout", times.upWithin, "until the link is up, 0 for no limit");
    command.takeSeconds("--for", times.keptFor,
                        "ends after being up that long, 0 for when interrupted");
}

Status runLink(NetworkConnection& connection, const LinkTimes& times, Output& output) {
    LinkWindow window(connection, times, output);
    if (!connection.initialize()) {
        connection.shutdown();
        throw Failure(Failed, "the hardware of the link does not start");
    }
    const bool isBegun = connection.connect();
    const Status status = isBegun ? window.run() : Failed;
    if (!connection.disconnect() || !connection.shutdown())
        throw Failure(Failed, "the link does not go down in order");
    if (!isBegun)
        throw Failure(Failed, "the link does not begin to connect");
    return status;
}

LinkSettings::LinkSettings(Command command, std::initializer_list<Known> known)
    : section(command.name()), file("") {
    for (const Known& entry : known)
        command.take("--" + std::string(entry.name), settings[entry.name], entry.what);
    command.take("--ini", path, "a file with what is not given here, by the same names");
    command.take("--section", section, "its section, named like the link if not given");
}

void LinkSettings::load() {
    file.SetPath(path);
    if (path.empty())
        return;
    if (!file.ReadFile())
        throw Failure(Failed, path + " cannot be read");
    if (file.FindKey(section) == IniFile::NotFound)
        throw Failure(WrongUsage, path + " has no section " + section);
}

std::string LinkSettings::text(const std::string& name) const {
    return settings.at(name).value_or(file.GetValue(section, name, ""));
}

}  // namespace ctl
