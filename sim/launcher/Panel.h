#pragma once

#include <string>
#include <vector>

#include "sim/launcher/PanelItem.h"
#include "sim/launcher/PanelLog.h"

namespace launcher {

/// The terminal's front panel on the screen: lamps, levels and links above what the program prints
/// and a line to type in. It takes over the screen and the keyboard between its making and its end;
/// then the screen is as before, with what the program has printed below. One at a time.
class Panel {
public:
    /// `programEnd` is the other end of the program's standard input and output, non-blocking;
    /// `itemsEnd` is where the terminal tells of itself. Both stay the caller's.
    Panel(int programEnd, int itemsEnd);
    Panel(const Panel&) = delete;
    Panel& operator=(const Panel&) = delete;
    ~Panel();

    /// Shows what happens until the program has ended.
    void run();

private:
    bool takeItems();
    bool takeOutput();
    void takeKeys();
    void submit();
    void draw() const;
    int drawItems() const;
    void drawLog(int top, int height) const;
    void drawInput(int row) const;

    const int program, items;
    std::vector<PanelItem> shown;
    PanelLog log;
    std::string typed;
    size_t scrolledBack = 0;  // lines between the end of the log and what is shown of it
};

}  // namespace launcher
