#pragma once

#include <deque>
#include <string>
#include <string_view>

namespace launcher {

/// The lines a program has printed, the latest at the end. Control characters are left out: the
/// lines are shown on a screen that has its own.
class PanelLog {
public:
    static constexpr size_t MostLines = 10000;  ///< older ones are dropped

    /// Takes what the program has printed, cut anywhere.
    void add(std::string_view bytes);

    const std::deque<std::string>& lines() const { return complete; }

    /// The beginning of a line that is not yet complete.
    const std::string& beginning() const { return partial; }

private:
    std::deque<std::string> complete;
    std::string partial;
};

}  // namespace launcher
