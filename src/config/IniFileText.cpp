// The text of an INI file: reading and writing it.

#include <cctype>

#include "config/IniFile.h"
#include "io/StdioFile.h"

namespace {

void dropEnd(std::string_view& line, char end) {
    if (!line.empty() && line.back() == end)
        line.remove_suffix(1);
}

bool isPrintable(char character) { return std::isprint(static_cast<unsigned char>(character)); }

void appendLine(std::string& text, std::string_view before, std::string_view middle,
                std::string_view after = {}) {
    text.append(before).append(middle).append(after).append("\r\n");
}

/// As data: a NUL in it must not cost the rest of a key.
void write(StdioFile& file, const std::string& text) {
    file.writeData(text.data(), static_cast<unsigned>(text.size()));
}

}  // namespace

bool IniFile::ReadFile() {
    StdioFile file;
    if (!file.open(path.c_str(), StdioFile::Read))
        return false;
    unsigned currentKey = FindKey("");
    while (!file.isEOF()) {
        const std::string read = file.readString();
        if (read.empty() && !file.isEOF())
            return false;  // the medium has failed
        std::string_view line = read;
        dropEnd(line, '\n');
        dropEnd(line, '\r');
        if (!line.empty() && !isPrintable(line.front()))
            return false;
        addLine(line, currentKey);
    }
    file.close();
    return !keys.empty();
}

/// Takes a line over. What belongs to a key goes to the first one of the name that was read last:
/// `currentKey`, looked for once per header.
void IniFile::addLine(std::string_view line, unsigned& currentKey) {
    const size_t special = line.find_first_of(";#[=");
    if (special == std::string_view::npos)
        return;
    const std::string_view after = line.substr(special + 1);
    switch (line[special]) {
    case '[': {
        const size_t end = after.rfind(']');
        if (end == std::string_view::npos)
            break;
        const std::string name(after.substr(0, end));
        AddKeyName(name);
        currentKey = FindKey(name);
        break;
    }
    case '=':
        if (currentKey == NotFound)
            currentKey = AddKeyName("");
        store(currentKey, line.substr(0, special), after, true);
        break;
    default:
        if (keys.empty())
            headerComments.emplace_back(after);
        else
            AddKeyComment(currentKey, std::string(after));
    }
}

bool IniFile::WriteFile() const {
    StdioFile file;
    if (!file.open(path.c_str(), StdioFile::Write))
        return false;
    std::string text;
    for (const std::string& comment : headerComments)
        appendLine(text, ";", comment);
    if (!headerComments.empty())
        appendLine(text, "", "");
    write(file, text);
    for (unsigned keyID = 0; keyID < keys.size(); ++keyID) {
        const key& section = keys[keyID];
        text.clear();
        appendLine(text, "[", keyNames[keyID], "]");
        for (const std::string& comment : section.comments)
            appendLine(text, ";", comment);
        for (size_t value = 0; value < section.values.size(); ++value)
            appendLine(text, section.names[value], "=", section.values[value]);
        appendLine(text, "", "");
        write(file, text);
    }
    file.close();
    return true;
}
