#pragma once

/// What every scanning engine offers. The base versions do nothing and return false. Not destroyed
/// through this interface.
class BasicReader {
public:
    /// Gets the engine ready for scans.
    virtual bool initialize() { return false; }

    /// Ends everything; initialize() may follow.
    virtual bool shutdown() { return false; }

    /// Prepares a scan: with an aiming light, or by arming a read that begins at once.
    virtual bool initRead() { return false; }

    /// Scans, or lets an armed read go on, until a code is read, stopRead() or the reader's own
    /// time-out.
    virtual bool startRead() { return false; }

    /// Ends a scan that has not read a code yet.
    virtual bool stopRead() { return false; }

protected:
    ~BasicReader() = default;
};
