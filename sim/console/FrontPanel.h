#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "sim/Terminal.h"
#include "sim/launcher/PanelItem.h"

namespace sim {

/// What a front panel of the terminal would show at this moment: lamps, levels, links, the last
/// code. Any thread may use it.
class FrontPanel {
public:
    explicit FrontPanel(Terminal& shown) : terminal(shown) {}

    /// Takes note of what happens to the devices; called for every entry of the journal.
    void see(const Journal::Entry& entry);

    std::vector<launcher::PanelItem> items() const;

private:
    Terminal& terminal;

    mutable std::mutex mutex;  // guards what follows
    std::string lastCode, lastTag;
};

}  // namespace sim
