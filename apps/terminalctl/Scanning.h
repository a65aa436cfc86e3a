#pragma once

#include "Commands.h"
#include "scanner/RfidReader.h"

namespace ctl {

/// What is to be read.
struct ScanOrder {
    bool barcodes = false;
    bool tags = false;
    int bank = RFID_BANK_0;
    int first = 0;
    int last = 0;
    int count = 1;
    double timeout = 10;          ///< seconds for all of them
    const char* text = "{code}";  ///< how each is told, out of engine, id and code
};

/// Declares the options that every order has.
void declareScanning(Command command, ScanOrder& order);

/// Reads with those engines of the order that the terminal has.
Status scan(const ScanOrder& order, Output& output);

}  // namespace ctl
