#pragma once

#include <cstdio>

namespace demo {

/// Prints one line of the application with the date, from any thread.
void show(const char* text);

template <class... Values> void show(const char* format, Values... values) {
    char text[256];
    std::snprintf(text, sizeof text, format, values...);
    show(static_cast<const char*>(text));
}

}  // namespace demo
