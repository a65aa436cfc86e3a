#pragma once

/// The data of events::ScannedCode (256): one code that a reader has read. The record and its texts
/// live on the sender's stack and are valid only during the broadcast.
struct ScanRecord {
    /// Which engine has read it.
    enum Source : int { Barcode = 0, Rfid = 1, RfidOfType1 = 2 };

    int source;        ///< a Source
    const char* id;    ///< a tag's identifier; null for a barcode
    const char* data;  ///< the code, NUL-terminated
    int reserved;      ///< always 0
};
