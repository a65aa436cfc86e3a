#pragma once

#include <cerrno>
#include <cstddef>

namespace test {

template <class Argument> struct Call {
    const char* name;
    long (*on)(Argument x);
};

/// The spellings of one call: its name for the fault rules ("" when it has none), the error that is
/// expected otherwise, and each CALL(expression) of it, on a path or descriptor `x`.
template <class Argument> struct Spellings {
    template <class... Calls>
    constexpr Spellings(const char* faultName, int otherError, Calls... all)
        : fault(faultName), error(otherError), calls{all...} {}

    const char* fault;
    int error;
    Call<Argument> calls[10];
};

#define CALL(expression)  \
    test::Call<Argument>( \
        {#expression, [](Argument x [[maybe_unused]]) -> long { return expression; }})

template <class Argument, size_t Count, class Check>
void forEachCall(const Spellings<Argument> (&table)[Count], Check check) {
    for (const auto& spellings : table) {
        for (const auto& call : spellings.calls) {
            if (call.on)
                check(spellings, call);
        }
    }
}

/// What a call fails with; 0 when it does not.
template <class Action> int errorOf(Action action) {
    errno = 0;
    return action() == -1 ? errno : 0;
}

}  // namespace test
