#pragma once

#include <map>
#include <memory>

/// A window: receives keys while it is the newest one, its own timers, and every system event.
///
/// Callbacks run under the library's lock, on the event thread; system events on the thread that
/// broadcasts them. Windows are created and destroyed inside callbacks, before run(), or by a
/// thread that holds the lock, so that no callback meets a half-made one.
class GuiWindow {
public:
    /// `style` is the closed library's choice of frame and font. Nothing is drawn here.
    explicit GuiWindow(int style);
    GuiWindow(const GuiWindow&) = delete;
    GuiWindow& operator=(const GuiWindow&) = delete;
    virtual ~GuiWindow();

    /// A key went down (Linux key code). True when the window has used it.
    virtual bool onKeyDown(int key);

    /// A key went up. True when the window has used it.
    virtual bool onKeyUp(int key);

    /// The application closes the window.
    virtual void onClose();

    /// A modal window opened from this one has finished.
    virtual bool onModalFinished(GuiWindow* modal);

    /// The window's timer `id` has fired.
    virtual void onTimer(int id);

    /// Somebody broadcasts; `data` is valid until this returns.
    virtual void onSystemEvent(int code, void* data);

    /// (Re)starts the window's periodic timer `id`. False for an interval below 1 ms.
    bool startTimer(int ms, int id);

    /// Stops timer `id`: its onTimer() is not called any more. True, also when it is not running.
    bool stopTimer(int id);

private:
    class Timer;

    unsigned long serial;                          // in order of creation
    std::map<int, std::unique_ptr<Timer>> timers;  // guarded by the library's lock
};
