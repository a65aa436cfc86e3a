#include "network/ModuleList.h"

namespace wlan {

bool isModuleListed(FILE* modules, std::string_view name) {
    size_t matched = 0;
    bool matches = true;  // so far on this line
    for (int character = 0; (character = std::getc(modules)) != EOF;) {
        if (character == '\n') {
            matched = 0;
            matches = true;
        } else if (matches && matched == name.size() && character == ' ') {
            return true;
        } else if (matches) {
            matches =
                matched < name.size() && character == static_cast<unsigned char>(name[matched]);
            ++matched;
        }
    }
    return false;
}

}  // namespace wlan
