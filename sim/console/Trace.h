#pragma once

#include <map>
#include <string>

#include "sim/Journal.h"

namespace sim {

/// Prints what happens to the devices, one dated line each, with what it means where the bare
/// request does not say. A device that only repeats itself is shown once, until the next change of
/// power.
class Trace {
public:
    void print(const Journal::Entry& entry);

private:
    std::map<std::string, std::string> last;  // text by device; the journal calls one at a time
};

/// A line with the terminal's local date and time in front, on standard output.
void printDated(std::chrono::nanoseconds wall, const std::string& text);

}  // namespace sim
