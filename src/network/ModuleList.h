#pragma once

#include <cstdio>
#include <string_view>

namespace wlan {

/// Whether a kernel module stands in a list of the loaded ones ("/proc/modules"): whether a line
/// begins with its name and a blank. Reads until it is found or to the end.
bool isModuleListed(FILE* modules, std::string_view name);

}  // namespace wlan
