#include "scanner/ScannerInput.h"

#include <new>

#include "config/IdentityLayout.h"
#include "config/SysInfo.h"
#include "scanner/BarcodeReader.h"

ScannerInput* ScannerInput::scannerInput = nullptr;

ScannerInput::~ScannerInput() {
    if (!readers[Barcode])
        return;
    for (int slot = Barcode; slot < Slots; ++slot)
        vacate(slot);
}

/// Gives the reader's storage back. False when the reader is in use.
bool ScannerInput::vacate(int slot) {
    if (running[slot] || timed[slot])
        return false;
    // The whole object's address, whatever base it is known by.
    ::operator delete(dynamic_cast<void*>(readers[slot]));
    readers[slot] = nullptr;
    return true;
}

bool ScannerInput::initialize() {
    if (scannerInput)
        return true;
    auto* const created = new ScannerInput;
    if (!created->init()) {
        delete created;
        return false;
    }
    scannerInput = created;
    return true;
}

ScannerInput* ScannerInput::getScannerInput() { return scannerInput; }

void ScannerInput::shutdown() {
    if (!scannerInput)
        return;
    scannerInput->close();
    delete scannerInput;
    scannerInput = nullptr;
}

bool ScannerInput::init() {
    detectReaders();
    for (int slot = Barcode; slot < Slots; ++slot) {
        if (!readers[slot] || running[slot])
            continue;
        if (!readers[slot]->initialize())
            return false;
        running[slot] = true;
    }
    return readers[Barcode] || readers[Rfid];
}

void ScannerInput::detectReaders() {
    char const* const engines = SysInfo::getScannerInformation();
    if (!engines || !*engines)
        return;
    if (engines[Barcode] == identity::BarcodeEngine && vacate(Barcode))
        readers[Barcode] = new BarcodeReader;
    if (engines[Rfid] == identity::RfidEngineNxp && vacate(Rfid))
        readers[Rfid] = new RfidReader(RFID_READER_NXP);
    else if (engines[Rfid] == identity::RfidEngineAms && vacate(Rfid))
        readers[Rfid] = new RfidReader(RFID_READER_AMS);
}

bool ScannerInput::initScan(int which) {
    if (which >= Barcode && which < Slots && readers[which]) {
        readers[which]->initRead();
        armed[which] = true;
    }
    return true;
}

bool ScannerInput::startScan() {
    bool started = false;
    for (int slot = Barcode; slot < Slots; ++slot) {
        if (!armed[slot])
            continue;
        readers[slot]->startRead();
        timed[slot] = true;
        started = true;
    }
    return started;
}

bool ScannerInput::stopScan() {
    bool stopped = false;
    for (int slot = Barcode; slot < Slots; ++slot) {
        if (!armed[slot])
            continue;
        readers[slot]->stopRead();
        timed[slot] = false;
        armed[slot] = false;
        stopped = true;
    }
    return stopped;
}

void ScannerInput::setRfidReadAreas(RfidBank bank, int a, int b) {
    if (readers[Rfid] && !armed[Rfid])
        static_cast<RfidReader*>(readers[Rfid])->setReadAreas(bank, a, b);
}

void ScannerInput::close() {
    if (!readers[Barcode])
        return;
    for (int slot = Barcode; slot < Slots; ++slot) {
        if (readers[slot])
            readers[slot]->shutdown();
        running[slot] = false;
        timed[slot] = false;
    }
}
