#include "config/IniFile.h"

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "foundation/Number.h"

namespace {

constexpr size_t FormattedSize = 512;  // with the NUL; also room for any number in "%f"

char lowerCase(char character) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
}

bool equalInAnyCase(std::string_view a, std::string_view b) {
    const auto isSame = [](char x, char y) { return x == y || lowerCase(x) == lowerCase(y); };
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), isSame);
}

/// In the form in which values are stored.
std::string storedForm(double value) {
    char text[FormattedSize];
    std::snprintf(text, sizeof text, "%f", value);
    return text;
}

template <class List> bool has(const List& list, unsigned id) { return id < list.size(); }

template <class List> void eraseAt(List& list, unsigned id) {
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(id));
}

}  // namespace

IniFile::IniFile(std::string filePath) : path(std::move(filePath)) {}

void IniFile::Reset() {
    keyNames.clear();
    keys.clear();
    headerComments.clear();
}

std::string IniFile::CheckCase(std::string s) const {
    if (caseInsensitive)
        std::transform(s.begin(), s.end(), s.begin(), lowerCase);
    return s;
}

unsigned IniFile::find(const std::vector<std::string>& names, std::string_view name) const {
    const auto isIt = [&](const std::string& one) {
        return caseInsensitive ? equalInAnyCase(one, name) : one == name;
    };
    const auto found = std::find_if(names.begin(), names.end(), isIt);
    return found == names.end() ? NotFound : static_cast<unsigned>(found - names.begin());
}

unsigned IniFile::FindKey(const std::string& name) const { return find(keyNames, name); }

unsigned IniFile::FindValue(unsigned keyID, const std::string& name) const {
    return has(keys, keyID) ? find(keys[keyID].names, name) : NotFound;
}

bool IniFile::hasValue(unsigned keyID, unsigned valueID) const {
    return has(keys, keyID) && has(keys[keyID].values, valueID);
}

bool IniFile::hasComment(unsigned keyID, unsigned commentID) const {
    return has(keys, keyID) && has(keys[keyID].comments, commentID);
}

std::string IniFile::GetKeyName(unsigned keyID) const {
    return has(keyNames, keyID) ? keyNames[keyID] : std::string();
}

unsigned IniFile::GetNumValues(unsigned keyID) const {
    return has(keys, keyID) ? static_cast<unsigned>(keys[keyID].values.size()) : 0;
}

std::string IniFile::GetValueName(unsigned keyID, unsigned valueID) const {
    return hasValue(keyID, valueID) ? keys[keyID].names[valueID] : std::string();
}

std::string IniFile::GetValue(unsigned keyID, unsigned valueID, const std::string& def) const {
    return hasValue(keyID, valueID) ? keys[keyID].values[valueID] : def;
}

bool IniFile::SetValue(unsigned keyID, unsigned valueID, const std::string& value) {
    if (hasValue(keyID, valueID))
        keys[keyID].values[valueID] = value;
    return false;
}

unsigned IniFile::GetNumKeyComments(unsigned keyID) const {
    return has(keys, keyID) ? static_cast<unsigned>(keys[keyID].comments.size()) : 0;
}

std::string IniFile::GetKeyComment(unsigned keyID, unsigned commentID) const {
    return hasComment(keyID, commentID) ? keys[keyID].comments[commentID] : std::string();
}

bool IniFile::AddKeyComment(unsigned keyID, const std::string& comment) {
    if (!has(keys, keyID))
        return false;
    keys[keyID].comments.push_back(comment);
    return true;
}

bool IniFile::DeleteKeyComment(unsigned keyID, unsigned commentID) {
    if (!hasComment(keyID, commentID))
        return false;
    eraseAt(keys[keyID].comments, commentID);
    return true;
}

bool IniFile::DeleteKeyComments(unsigned keyID) {
    if (!has(keys, keyID))
        return false;
    keys[keyID].comments.clear();
    return true;
}

std::string IniFile::GetHeaderComment(unsigned commentID) const {
    return has(headerComments, commentID) ? headerComments[commentID] : std::string();
}

void IniFile::AddHeaderComment(const std::string& comment) { headerComments.push_back(comment); }

bool IniFile::DeleteHeaderComment(unsigned commentID) {
    if (!has(headerComments, commentID))
        return false;
    eraseAt(headerComments, commentID);
    return true;
}

unsigned IniFile::GetNumValues(const std::string& keyName) const {
    return GetNumValues(FindKey(keyName));
}

std::string IniFile::GetValueName(const std::string& keyName, unsigned valueID) const {
    return GetValueName(FindKey(keyName), valueID);
}

unsigned IniFile::GetNumKeyComments(const std::string& keyName) const {
    return GetNumKeyComments(FindKey(keyName));
}

std::string IniFile::GetKeyComment(const std::string& keyName, unsigned commentID) const {
    return GetKeyComment(FindKey(keyName), commentID);
}

bool IniFile::AddKeyComment(const std::string& keyName, const std::string& comment) {
    return AddKeyComment(FindKey(keyName), comment);
}

bool IniFile::DeleteKeyComment(const std::string& keyName, unsigned commentID) {
    return DeleteKeyComment(FindKey(keyName), commentID);
}

bool IniFile::DeleteKeyComments(const std::string& keyName) {
    return DeleteKeyComments(FindKey(keyName));
}

unsigned IniFile::AddKeyName(const std::string& name) {
    keyNames.push_back(name);
    keys.emplace_back();
    return GetNumKeys() - 1;
}

std::string IniFile::GetValue(const std::string& keyName, const std::string& name,
                              const std::string& def) const {
    const unsigned keyID = FindKey(keyName);
    return GetValue(keyID, FindValue(keyID, name), def);
}

int IniFile::GetValueI(const std::string& keyName, const std::string& name, int def) const {
    return foundation::numberIn(GetValue(keyName, name, std::to_string(def)).c_str());
}

double IniFile::GetValueF(const std::string& keyName, const std::string& name, double def) const {
    return std::strtod(GetValue(keyName, name, storedForm(def)).c_str(), nullptr);
}

int IniFile::GetValueV(const std::string& keyName, const std::string& name, const char* format,
                       ...) const {
    const std::string value = GetValue(keyName, name, "");
    va_list arguments;
    va_start(arguments, format);
    const int count = std::vsscanf(value.c_str(), format, arguments);
    va_end(arguments);
    return count;
}

/// Stores a value in a key that is there.
bool IniFile::store(unsigned keyID, std::string_view name, std::string_view value, bool create) {
    key& into = keys[keyID];
    const unsigned valueID = find(into.names, name);
    if (valueID != NotFound) {
        into.values[valueID] = value;
        return true;
    }
    if (create) {
        into.names.emplace_back(name);
        into.values.emplace_back(value);
    }
    return create;
}

bool IniFile::SetValue(const std::string& keyName, const std::string& name,
                       const std::string& value, bool create) {
    unsigned keyID = FindKey(keyName);
    if (keyID == NotFound) {
        if (!create)
            return false;
        keyID = AddKeyName(keyName);
    }
    return store(keyID, name, value, create);
}

bool IniFile::SetValueI(const std::string& keyName, const std::string& name, int value,
                        bool create) {
    return SetValue(keyName, name, std::to_string(value), create);
}

bool IniFile::SetValueF(const std::string& keyName, const std::string& name, double value,
                        bool create) {
    return SetValue(keyName, name, storedForm(value), create);
}

bool IniFile::SetValueV(const std::string& keyName, const std::string& name, const char* format,
                        ...) {
    char text[FormattedSize];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const bool fits = length >= 0 && static_cast<size_t>(length) < sizeof text;
    return fits && SetValue(keyName, name, text, true);
}

bool IniFile::DeleteValue(const std::string& keyName, const std::string& name) {
    const unsigned keyID = FindKey(keyName);
    const unsigned valueID = FindValue(keyID, name);
    if (valueID == NotFound)
        return false;
    eraseAt(keys[keyID].names, valueID);
    eraseAt(keys[keyID].values, valueID);
    return true;
}

bool IniFile::DeleteKey(const std::string& keyName) {
    const unsigned keyID = FindKey(keyName);
    if (keyID == NotFound)
        return false;
    eraseAt(keyNames, keyID);
    eraseAt(keys, keyID);
    return true;
}
