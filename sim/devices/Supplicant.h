#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "sim/Journal.h"
#include "sim/Programs.h"
#include "sim/devices/WlanAdapter.h"

namespace sim {

/// What the supplicant that runs as a program of the terminal does when it is not left to itself,
/// and its way to the adapter. Every command that reaches it stands in the journal. Any thread may
/// use it.
class Supplicant {
public:
    Supplicant(Journal& journal, WlanAdapter& adapter, Programs& programs);

    /// The next `times` commands that begin with `begin` are handled in these steps instead:
    ///   "obey"          as a supplicant does
    ///   "answer TEXT"   this answer, whatever it is
    ///   "events N MS"   so many events to the one who asked, each so many milliseconds after the
    ///                   one before (of the host's time, as all of these)
    ///   "delay MS"      nothing for so long
    ///   "die"           ends at once
    /// No steps: no answer. Rules are tried in the order they were added.
    void onCommand(const std::string& begin, std::vector<std::string> steps, int times = 1);
    void clear();

private:
    struct Rule {
        std::string begin;
        Words steps;
        int times;
    };

    Words answer(const Words& question);
    Words stepsFor(const std::string& command);

    Journal& journal;
    WlanAdapter& adapter;

    std::mutex mutex;  // guards what follows
    std::deque<Rule> rules;
};

}  // namespace sim
