#pragma once

#include "scanner/BasicReader.h"
#include "scanner/RfidReader.h"

/// The one object through which an application scans: finds the engines that the terminal has,
/// creates a reader for each and passes the requests on to those that are armed. What they read
/// comes from the readers themselves, as events::ScannedCode.
///
/// Used by the application's thread alone, never from the delivery of a code, and while the power
/// manager exists. It owns the readers, in a way that applications rely on: they are never
/// destroyed, only their storage is released; see close() and the destructor.
class ScannerInput {
public:
    ScannerInput() = default;
    ScannerInput(const ScannerInput&) = delete;
    ScannerInput& operator=(const ScannerInput&) = delete;

    /// Releases the readers' storage without running their destructors; the RFID reader's only
    /// beside a barcode reader, as in close(). A reader that still runs or has its timer running,
    /// because close() was not called, keeps its storage and runs on.
    virtual ~ScannerInput();

    /// Creates the instance and initializes its readers. True when that succeeds, and when there is
    /// an instance already. After a failure there is none, and a reader that was initialized before
    /// another one failed runs on.
    static bool initialize();

    /// Null before initialize() and after shutdown().
    static ScannerInput* getScannerInput();

    /// Closes and destroys the instance, if there is one.
    static void shutdown();

    /// Detects and initializes the readers that do not run yet, barcode first, up to the first that
    /// fails. False then, and when the terminal has none.
    bool init();

    /// Creates the readers that the terminal's own description names; none without a description.
    /// A reader that is there already stays if it is in use, and makes room for a new one if not.
    void detectReaders();

    /// Prepares a scan with reader 0 (barcode) or 1 (RFID) and arms it. Always true, also when
    /// there is no such reader and nothing happens.
    bool initScan(int which);

    /// Starts the armed readers, barcode first. True when there is one.
    bool startScan();

    /// Stops and disarms the armed readers, barcode first. True when there is one.
    bool stopScan();

    /// What of a tag is read, see RfidReader::setReadAreas(). Ignored while that reader is armed.
    void setRfidReadAreas(RfidBank bank, int a, int b);

    /// Shuts the barcode reader and then the RFID reader down; without a barcode reader, nothing:
    /// an RFID reader alone stays ready.
    void close();

private:
    enum Slot { Barcode, Rfid, Slots };

    static ScannerInput* scannerInput;

    bool vacate(int slot);

    BasicReader* readers[Slots] = {};  // null: no such engine
    bool armed[Slots] = {};
    // Initialized, and not shut down since; started, and not stopped. Such a reader stays.
    bool running[Slots] = {};
    bool timed[Slots] = {};
};
