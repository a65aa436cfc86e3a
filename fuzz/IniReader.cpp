// Any bytes as an INI file. What has been read is written and read again: it must be the same.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "config/IniFile.h"
#include "sim/Terminal.h"

namespace {

void require(bool holds) {
    if (!holds)
        abort();
}

bool isSame(const IniFile& a, const IniFile& b) {
    if (a.GetNumKeys() != b.GetNumKeys() || a.GetNumHeaderComments() != b.GetNumHeaderComments())
        return false;
    for (unsigned comment = 0; comment < a.GetNumHeaderComments(); ++comment) {
        if (a.GetHeaderComment(comment) != b.GetHeaderComment(comment))
            return false;
    }
    for (unsigned key = 0; key < a.GetNumKeys(); ++key) {
        if (a.GetKeyName(key) != b.GetKeyName(key) || a.GetNumValues(key) != b.GetNumValues(key) ||
            a.GetNumKeyComments(key) != b.GetNumKeyComments(key))
            return false;
        for (unsigned value = 0; value < a.GetNumValues(key); ++value) {
            if (a.GetValueName(key, value) != b.GetValueName(key, value) ||
                a.GetValue(key, value, "-") != b.GetValue(key, value, "+"))
                return false;
        }
        for (unsigned comment = 0; comment < a.GetNumKeyComments(key); ++comment) {
            if (a.GetKeyComment(key, comment) != b.GetKeyComment(key, comment))
                return false;
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static sim::Terminal terminal;
    static const std::string path = terminal.files().hostPath("/settings.ini");
    terminal.files().write("/settings.ini", std::string(reinterpret_cast<const char*>(data), size));
    IniFile first(path);
    const bool hasKeys = first.ReadFile();
    require(!hasKeys || first.GetNumKeys() > 0);
    require(first.WriteFile());
    IniFile second(path);
    require(second.ReadFile() == (first.GetNumKeys() > 0));
    require(isSame(first, second));
    return 0;
}
