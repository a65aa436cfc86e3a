#pragma once

#include <atomic>
#include <cstddef>

#include "foundation/Thread.h"
#include "gui/GuiTimer.h"
#include "io/SerialPort.h"
#include "scanner/BasicReader.h"

/// The built-in barcode engine on "/dev/ttyAT2".
///
/// The application's thread initializes it, starts and stops scans and shuts it down; a worker of
/// its own reads the port and delivers each code as events::ScannedCode (a ScanRecord); the scan
/// timer ends on the windowing library's event thread a scan that has found nothing within 5
/// seconds. The power manager exists for the whole life of a reader.
class BarcodeReader : public BasicReader, public SerialPort, public Thread, public GuiTimer {
public:
    BarcodeReader();

    /// Shuts an initialized reader down.
    ~BarcodeReader() override;

    /// Powers the engine up, opens and configures its port and starts the worker. Takes about 100
    /// ms. False when a step fails, and always after a first call until shutdown(): a failed
    /// initialization is not tried again before that.
    bool initialize() override;

    /// Stops timer and worker, closes the port and powers the engine down. Takes up to a second
    /// while the worker waits to deliver a code; up to ten if it hangs. True when the engine has
    /// been powered down. May be called while holding the windowing library's lock, also from the
    /// delivery of a code, on the worker: that returns at once, and the worker ends after it.
    bool shutdown() override;

    /// Lights the aiming light. True when it is lit.
    bool initRead() override;

    /// Puts the aiming light out, tells the engine to scan unless it has been told, and starts the
    /// 5 seconds anew. True; while it scans already, whether the timer has been started. Only after
    /// initialize(): what an engine without a line is told counts as told.
    bool startRead() override;

    /// Puts the aiming light out, tells the engine to stop if it is scanning, and stops the timer.
    /// True.
    bool stopRead() override;

    void run() override;

    /// stopRead(): nothing was found in time.
    void onTimer() override;

    /// Delivers one code. Waits for the windowing library's lock; a worker asked to stop meanwhile
    /// drops the code.
    void submit(char const* code);

private:
    static constexpr size_t MaxBurst = 63;

    size_t readBurst(char* buffer);
    void send(char const* command);

    std::atomic<int> initState;
    std::atomic<bool> triggerActive{false};  // the engine scans; written by worker and application
};
