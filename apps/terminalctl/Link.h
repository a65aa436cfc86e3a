#pragma once

#include <initializer_list>
#include <map>
#include <memory>
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

void declareTimes(CLI::App& command, LinkTimes& times);

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
    LinkSettings(CLI::App& command, std::initializer_list<Known> known);

    /// Reads the file, if there is one.
    void load();

    /// "" when it is given nowhere.
    std::string text(const std::string& name) const;

private:
    struct Setting {
        std::string text;
        CLI::Option* option = nullptr;
    };

    std::map<std::string, Setting> settings;
    std::string section;
    IniFile file;
    std::string path;
};

}  // namespace ctl
