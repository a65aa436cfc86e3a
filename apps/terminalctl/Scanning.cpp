#include "Scanning.h"

#include <memory>

#include "Device.h"
#include "EventWindow.h"
#include "config/SysInfo.h"
#include "power/SystemEvents.h"
#include "scanner/BarcodeReader.h"
#include "scanner/ScanRecord.h"

namespace ctl {
namespace {

constexpr int TickMs = 500;
constexpr int MostCodes = 1'000'000;

/// A reader that says when its line is gone.
class Barcodes : public BarcodeReader {
public:
    Barcodes() = default;
    /// Ends the worker while this is still the object that it runs on.
    ~Barcodes() override { BarcodeReader::shutdown(); }

    using SerialPort::isHungUp;
};

/// The readers of the engines that are fitted and wanted.
class Engines {
public:
    explicit Engines(const ScanOrder& order) {
        const char* const described = SysInfo::getScannerInformation();
        const std::string fitted = std::string(described ? described : "") + "00";
        if (order.barcodes && fitted[0] == '1')
            barcodes = std::make_unique<Barcodes>();
        if (order.tags && (fitted[1] == '1' || fitted[1] == '2'))
            tags =
                std::make_unique<RfidReader>(fitted[1] == '1' ? RFID_READER_NXP : RFID_READER_AMS);
        if (!barcodes && !tags)
            throw Failure(Failed, "the terminal has no such engine");
        if (barcodes && !barcodes->initialize())
            throw Failure(Failed, "the barcode engine does not start");
        if (tags && !tags->initialize())
            throw Failure(Failed, "the RFID engine does not start");
        if (tags)
            tags->setReadAreas(static_cast<RfidBank>(order.bank), order.first, order.last);
    }

    /// Starts what does not read, and gives what does the time anew.
    void keepReading() const {
        if (barcodes)
            barcodes->startRead();
        if (tags) {
            tags->initRead();
            tags->startRead();
        }
    }

    void stopReading() const {
        if (barcodes)
            barcodes->stopRead();
        if (tags)
            tags->stopRead();
    }

    bool isLineGone() const { return barcodes && barcodes->isHungUp(); }

private:
    std::unique_ptr<Barcodes> barcodes;
    std::unique_ptr<RfidReader> tags;
};

class ScanWindow : public EventWindow {
public:
    ScanWindow(const ScanOrder& givenOrder, Output& shownOn)
        : EventWindow(shownOn), order(givenOrder), engines(order) {
        startTimer(TickMs, TickTimer);
        engines.keepReading();
    }
    ~ScanWindow() override { engines.stopReading(); }

    void onTick() override {
        if (engines.isLineGone())
            finish();
        else
            engines.keepReading();
    }

    void onSystemEvent(int code, void* data) override {
        if (code != events::ScannedCode || found == order.count)
            return;
        const ScanRecord& record = *static_cast<const ScanRecord*>(data);
        output.show(order.text,
                    {{"engine", record.source == ScanRecord::Barcode ? "barcode" : "rfid"},
                     {"id", record.id ? Value(record.id) : Value()},
                     {"code", record.data}});
        if (++found == order.count)
            finish();
    }

    Status status() const {
        if (found == order.count)
            return Done;
        if (engines.isLineGone())
            throw Failure(Failed, "the barcode engine's line has hung up");
        throw Failure(Nothing, "nothing more has been read");
    }

private:
    const ScanOrder order;
    int found = 0;          // guarded by the windowing library's lock
    const Engines engines;  // the last member: they may still read while they end
};

}  // namespace

void declareScanning(Command command, ScanOrder& order) {
    command.take("--count", order.count, "how many are read", within(1, MostCodes));
    command.takeSeconds("--timeout", order.timeout, "for all of them, 0 for no limit");
}

Status scan(const ScanOrder& order, Output& output) {
    const Device device;
    ScanWindow window(order, output);
    window.run(order.timeout);
    const events::WindowingGuard windowing;
    return window.status();
}

}  // namespace ctl
