#include "gui/GuiTimer.h"

#include "gui/EventLoop.h"

GuiTimer::~GuiTimer() { stopTimer(); }

bool GuiTimer::startTimer() {
    if (period < 1)
        return false;
    gui::EventLoop& loop = gui::EventLoop::instance();
    loop.timers.start(this, period);
    loop.wake();
    return true;
}

bool GuiTimer::stopTimer() {
    gui::EventLoop::instance().timers.stop(this);
    return true;
}
