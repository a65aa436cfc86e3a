#pragma once

/// A periodic timer. Derived classes override onTimer(), which the event thread calls under the
/// library's lock every `period` milliseconds until the timer is stopped. A timer that could not
/// fire in time fires once and goes on from there; missed rounds are not made up for.
///
/// Started and stopped from any thread. A derived class that other threads can see stops the timer
/// in its own destructor, before its members go.
class GuiTimer {
public:
    GuiTimer() = default;
    GuiTimer(const GuiTimer&) = delete;
    GuiTimer& operator=(const GuiTimer&) = delete;
    virtual ~GuiTimer();

    /// The timer has fired. Does nothing here.
    virtual void onTimer() {}

    /// (Re)starts the timer: it fires `period` milliseconds from now. False for a period below 1.
    bool startTimer();

    /// Stops the timer. An onTimer() of this timer that runs on another thread is waited for, so
    /// none runs when this returns; inside onTimer(), and for a holder of the library's lock, it
    /// does not wait. True, also for a timer that is not running.
    bool stopTimer();

    int period = 0;  ///< milliseconds; a change takes effect with the next startTimer()
};
