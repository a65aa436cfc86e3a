#pragma once

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "sim/Clock.h"

/// How the console's commands read their words. For the console alone.
namespace sim {

/// A failed command. Thrown within the console only.
struct Wrong {
    std::string reason;
};

inline double number(const std::string& text) {
    char* end = nullptr;
    const double value = strtod(text.c_str(), &end);
    if (text.empty() || *end || !std::isfinite(value) || std::fabs(value) > 1e9)
        throw Wrong{"not a number: " + text};
    return value;
}

inline Nanoseconds seconds(const std::string& text) {
    const double value = number(text);
    if (value < 0)
        throw Wrong{"not a duration: " + text};
    return Nanoseconds(std::llround(value * 1e9));
}

inline bool choice(const std::string& word, const std::string& yes, const std::string& no) {
    if (word != yes && word != no)
        throw Wrong{"'" + yes + "' or '" + no + "', not: " + word};
    return word == yes;
}

template <class Value> struct Named {
    const char* name;
    Value value;
};

template <class Value, size_t Count>
Value choice(const std::string& word, const Named<Value> (&choices)[Count]) {
    std::string names;
    for (const auto& known : choices) {
        if (word == known.name)
            return known.value;
        names += std::string(names.empty() ? "" : ", ") + known.name;
    }
    throw Wrong{"one of " + names + ", not: " + word};
}

}  // namespace sim
