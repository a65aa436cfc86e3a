#pragma once

/// What every scanning engine offers. The base versions do nothing and return false. Not destroyed
/// through this interface.
class BasicReader {
public:
    /// Powers the engine up and gets it ready for scans.
    virtual bool initialize() { return false; }

    /// Ends everything and powers the engine down; initialize() may follow.
    virtual bool shutdown() { return false; }

    /// Prepares a scan, e.g. with an aiming light.
    virtual bool initRead() { return false; }

    /// Scans until a code is read, stopRead() or the reader's own time-out.
    virtual bool startRead() { return false; }

    /// Ends a scan that has not read a code yet.
    virtual bool stopRead() { return false; }

protected:
    ~BasicReader() = default;
};
