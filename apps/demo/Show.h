#pragma once

#include <cstdio>

namespace demo {

constexpr unsigned LongestLine = 256;

/// Prints one line of the application with the date, from any thread.
void show(const char* text);

/// The same for what is worth keeping: it goes into the log on the memory card as well.
void note(const char* text);

template <class... Values> void show(const char* format, Values... values) {
    char text[LongestLine];
    std::snprintf(text, sizeof text, format, values...);
    show(static_cast<const char*>(text));
}

template <class... Values> void note(const char* format, Values... values) {
    char text[LongestLine];
    std::snprintf(text, sizeof text, format, values...);
    note(static_cast<const char*>(text));
}

}  // namespace demo
