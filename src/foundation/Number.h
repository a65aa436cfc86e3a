#pragma once

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace foundation {

/// The decimal number at the beginning of a text, after white space: 0 without one, and for one
/// that no int holds the nearest that one does.
inline int numberIn(const char* text) {
    return static_cast<int>(std::clamp<long>(std::strtol(text, nullptr, 10), INT_MIN, INT_MAX));
}

}  // namespace foundation
