#include "gui/GuiWindow.h"

#include "gui/EventLoop.h"

/// Passes its rounds to the window, which may destroy itself and this timer in the call.
class GuiWindow::Timer : public GuiTimer {
public:
    Timer(GuiWindow& owner, int timerId) : window(owner), id(timerId) {}
    void onTimer() override { window.onTimer(id); }

private:
    GuiWindow& window;
    const int id;
};

GuiWindow::GuiWindow(int) : serial(gui::EventLoop::instance().addWindow(this)) {}

GuiWindow::~GuiWindow() {
    gui::LibraryGuard library;
    gui::EventLoop::instance().removeWindow(serial);
    timers.clear();
}

bool GuiWindow::onKeyDown(int) { return false; }

bool GuiWindow::onKeyUp(int) { return false; }

void GuiWindow::onClose() {}

bool GuiWindow::onModalFinished(GuiWindow*) { return false; }

void GuiWindow::onTimer(int) {}

void GuiWindow::onSystemEvent(int, void*) {}

bool GuiWindow::startTimer(int ms, int id) {
    gui::LibraryGuard library;
    std::unique_ptr<Timer>& timer = timers[id];
    if (!timer)
        timer = std::make_unique<Timer>(*this, id);
    timer->period = ms;
    return timer->startTimer();
}

bool GuiWindow::stopTimer(int id) {
    gui::LibraryGuard library;
    const auto timer = timers.find(id);
    return timer == timers.end() || timer->second->stopTimer();
}
