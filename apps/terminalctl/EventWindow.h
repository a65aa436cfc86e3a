#pragma once

#include "Output.h"
#include "gui/GuiWindow.h"

namespace ctl {

/// A window that shows the system events as they come, and runs the event loop for a command.
class EventWindow : public GuiWindow {
public:
    /// How the event loop has ended.
    enum End { Interrupted, Finished, TimeOver };

    explicit EventWindow(Output& shownOn) : GuiWindow(0), output(shownOn) {}

    /// Runs the event loop until finish(), until the time is over (0: it never is) or a signal.
    End run(double seconds);

    void onTimer(int id) override;
    void onSystemEvent(int code, void* data) override;

protected:
    // With the windowing library's lock held, as in every callback.

    void finish();

    /// Sets the time that is left.
    void limit(double seconds);

    /// The next round of a timer with another number than the limit's.
    virtual void onTick() {}

    static constexpr int TickTimer = 1;

    Output& output;

private:
    static constexpr int LimitTimer = 0;

    void end(End reason);

    End how = Interrupted;  // guarded by the windowing library's lock
};

}  // namespace ctl
