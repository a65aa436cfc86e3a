#pragma once

#include <atomic>

#include "foundation/Mutex.h"
#include "foundation/Semaphore.h"
#include "foundation/Thread.h"
#include "gui/GuiTimer.h"
#include "io/FileDescriptor.h"
#include "scanner/BasicReader.h"

/// The fitted engine, and so its device: "/dev/rfid_nxp" or "/dev/rfid_ams".
enum RfidReaderType : int { RFID_READER_NXP = 0, RFID_READER_AMS = 1 };

/// What of a tag is read; the meaning of the banks is the engine's.
enum RfidBank : int {
    RFID_BANK_0 = 0,
    RFID_BANK_1 = 1,
    RFID_BANK_2 = 2,
    RFID_BANK_3 = 3,
    RFID_BANK_4 = 4
};

/// The RFID engine behind a driver that performs a whole tag read per read().
///
/// The application's thread initializes it, arms, starts and stops reads and shuts it down; a
/// worker of its own opens the device for each armed read, waits in it for a tag and delivers that
/// as events::ScannedCode (a ScanRecord); the scan timer aborts on the windowing library's event
/// thread a read that has found nothing within 5 seconds. The driver's answer is dropped without a
/// word when it reports a failure, its lengths do not add up, or it holds neither identifier nor
/// data.
class RfidReader : public BasicReader, public Thread, public GuiTimer {
public:
    /// Touches nothing yet.
    explicit RfidReader(RfidReaderType type);

    /// Shuts the reader down.
    ~RfidReader() override;

    /// Opens the device once to see that it is there, and starts the worker. False when a read is
    /// in progress, the device cannot be opened, or there is a worker: also one that has ended
    /// because it could not open the device, until shutdown().
    bool initialize() override;

    /// Aborts the read in progress and ends the worker. Takes a tenth of a second; up to one second
    /// while the worker waits to deliver a tag, up to ten when the driver does not let go of a
    /// read. True when the worker is gone; false when there was none. May be called while holding
    /// the windowing library's lock, also from the delivery of a tag, on the worker: that returns
    /// false at once, the worker ends after it, and another shutdown() joins it.
    bool shutdown() override;

    /// Arms one read, which begins at once, or with initialize() when that comes later. True.
    /// Without effect during a read, the delivery of its tag included: arm again after each result.
    bool initRead() override;

    /// Starts the 5 seconds anew.
    bool startRead() override;

    /// Aborts the read in progress, if there is one, and stops the timer.
    bool stopRead() override;

    void run() override;

    /// stopRead(): nothing was found in time.
    void onTimer() override;

    /// What the reads from the next one on shall read: the bank, and in it the blocks or the area
    /// from `first` to `last`. Before the first call it is bank 0. An engine of type 0 knows areas
    /// in bank 4 only. For a value that is no bank the engine is left as it was.
    void setReadAreas(RfidBank bank, int first, int last);

    /// Delivers one tag. Waits for the windowing library's lock; a worker asked to stop meanwhile
    /// drops the tag.
    void submit(char const* id, char const* data);

private:
    class DeviceInUse;

    struct ReadArea {
        RfidBank bank = RFID_BANK_0;
        int first = 0;
        int last = 0;
    };

    char const* devicePath() const;
    bool readTag();
    void configure(const ReadArea& wanted);
    void request(unsigned number, int argument) const;
    bool mayRead();
    void abortRead();

    std::atomic<bool> readRequested{false};  // set by the application, cleared by the worker

    // Opened and closed by the worker with `guard` held: no abort meets a descriptor that is being
    // closed. The worker itself uses it without.
    io::FileDescriptor device;
    Mutex guard;

    ReadArea area;  // guarded by guard

    Semaphore requests;  // a read has been requested, or a stop

    const RfidReaderType type;

    bool aborted = false;                // since the device was opened; guarded by guard
    std::atomic<bool> isReading{false};  // from before the device is opened to the answer
};
