#pragma once

#include <atomic>
#include <memory>

#include "bluetooth/BluetoothReader.h"
#include "io/SerialPort.h"

/// The serial line of the text-command module, with the reader thread that empties it. The driver
/// owns it, sets its answer type and serialises reading and writing.
///
/// Destroying it stops the reader, which may be in a poll of the module: nobody holds what that
/// poll waits for.
class BluetoothPort : public SerialPort {
public:
    BluetoothPort() = default;

    /// The result of writeData().
    int write(const char* data, unsigned int len) { return writeData(data, len); }

    /// Starts the reader, unless there is one. True.
    bool initReader(BluetoothModule* module);

    /// Has the reader poll the module once. Lost while the reader polls already, or without one.
    void startRead();

    /// BlueGigaBluetoothModule::Answer: how the answer read last has ended.
    std::atomic<int> answerType{0};

private:
    std::unique_ptr<BluetoothReader> reader;
};
