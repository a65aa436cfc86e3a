#include <cctype>
#include <memory>

#include "Commands.h"
#include "config/IniFile.h"
#include "io/StdioFile.h"

namespace ctl {
namespace {

constexpr size_t LongestLine = 255;

struct Place {
    std::string path;
    std::string section;
    std::string name;
    std::string value;
};

IniFile read(const Place& place) {
    IniFile file(place.path);
    if (!file.ReadFile())
        throw Failure(Failed, place.path + " cannot be read, or is no INI file");
    return file;
}

/// A file that is new or empty will do as well.
IniFile readOrBegin(const Place& place) {
    StdioFile present;
    if (present.open(place.path.c_str(), StdioFile::Read) && present.getSize() != 0)
        return read(place);
    return IniFile(place.path);
}

Status write(const IniFile& file) {
    return file.WriteFile() ? Done : throw Failure(Failed, file.GetPath() + " cannot be written");
}

/// A line is kept only if it is read as it was written: nothing is quoted in such a file.
bool isKept(const std::string& text, const char* excluded, size_t size) {
    return text.empty() ||
           (size <= LongestLine && text.find_first_of(excluded) == std::string::npos);
}

void checkLine(const Place& place) {
    const size_t size = place.name.size() + 1 + place.value.size();
    const bool hasName =
        !place.name.empty() && std::isprint(static_cast<unsigned char>(place.name[0]));
    if (!hasName || !isKept(place.name, ";#[=\r\n", size) || !isKept(place.value, "\r\n", size) ||
        !isKept(place.section, "]\r\n", place.section.size() + 2))
        throw Failure(WrongUsage, "an INI file cannot keep that section, name or value");
}

void show(const IniFile& file, unsigned key, unsigned value, const char* text, Output& output) {
    output.show(text, {{"section", file.GetKeyName(key)},
                       {"name", file.GetValueName(key, value)},
                       {"value", file.GetValue(key, value, "")}});
}

Status get(const Place& place, Output& output) {
    const IniFile file = read(place);
    const unsigned key = file.FindKey(place.section);
    const unsigned value = file.FindValue(key, place.name);
    if (value == IniFile::NotFound)
        return Nothing;
    show(file, key, value, "{value}", output);
    return Done;
}

Status list(const Place& place, Output& output) {
    const IniFile file = read(place);
    const bool hasAll = place.section.empty();
    const unsigned only = file.FindKey(place.section);
    if (!hasAll && only == IniFile::NotFound)
        return Nothing;
    const unsigned end = hasAll ? file.GetNumKeys() : only + 1;
    for (unsigned key = hasAll ? 0 : only; key < end; ++key) {
        for (unsigned value = 0; value < file.GetNumValues(key); ++value)
            show(file, key, value, "[{section}] {name}={value}", output);
    }
    return Done;
}

Status set(const Place& place, Output&) {
    checkLine(place);
    IniFile file = readOrBegin(place);
    file.SetValue(place.section, place.name, place.value, true);
    return write(file);
}

Status remove(const Place& place, Output&) {
    IniFile file = read(place);
    const bool isRemoved = place.name.empty() ? file.DeleteKey(place.section)
                                              : file.DeleteValue(place.section, place.name);
    return isRemoved ? write(file) : Nothing;
}

/// How many of a place's parts a command takes, and how many of those it needs.
constexpr struct {
    const char* name;
    const char* what;
    Status (*operation)(const Place& place, Output& output);
    int taken;
    int needed;
} Operations[] = {
    {"get", "shows a value", get, 3, 3},
    {"set", "stores a value, in a section and a file that may be new", set, 4, 4},
    {"list", "shows all values, or those of a section", list, 2, 1},
    {"delete", "removes a value, or a section", remove, 3, 2},
};

constexpr struct {
    const char* name;
    std::string Place::*member;
    const char* what;
} Parts[] = {
    {"file", &Place::path, "the file"},
    {"section", &Place::section, "a section of it"},
    {"name", &Place::name, "of a value in the section"},
    {"value", &Place::value, "the text that it gets"},
};

}  // namespace

void declareIni(Command command) {
    const auto place = std::make_shared<Place>();
    for (const auto& entry : Operations) {
        Command operating = command.add(entry.name, entry.what);
        for (int i = 0; i < entry.taken; ++i) {
            const auto& [name, member, what] = Parts[i];
            if (i < entry.needed)
                operating.need(name, (*place).*member, what);
            else
                operating.take(name, (*place).*member, what);
        }
        operating.act([place, operation = entry.operation](Output& output) {
            return operation(*place, output);
        });
    }
}

}  // namespace ctl
