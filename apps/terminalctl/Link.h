#pragma once

#include <initializer_list>
#include <map>
#include <optional>
#include <string>

#include "Commands.h"
#include "config/IniFile.h"
#include "network/NetworkConnection.h"

namespace ctl {

/// How long a link is waited for and kept, in seconds; 0 has no limit.
struct LinkTimes {
    double upWithin = 60;
    double keptFor = 0;
};

void declareTimes(Command command, LinkTimes& times);

/// Brings a link up, shows what it tells, and takes it down when it has been up for its time, or at
/// a signal.
Status runLink(NetworkConnection& connection, const LinkTimes& times, Output& output);

/// The settings of a link: texts from options or, for those not given, from an INI file.
class LinkSettings {
public:
    struct Known {
        const char* name;
        const char* what;
    };

    /// Declares the options "--name", and those that name the file and the section in it.
    LinkSettings(Command command, std::initializer_list<Known> known);

    /// Reads the file, if there is one.
    void load();

    /// "" when it is given nowhere.
    std::string text(const std::string& name) const;

private:
    std::map<std::string, std::optional<std::string>> settings;  // those given as options
    std::string section;
    IniFile file;
    std::string path;
};

}  // namespace ctl
