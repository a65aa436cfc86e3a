#include "bluetooth/BluetoothPort.h"

bool BluetoothPort::initReader(BluetoothModule* module) {
    if (!reader)
        reader = std::make_unique<BluetoothReader>(module);
    return true;
}

void BluetoothPort::startRead() {
    if (reader)
        reader->startRead();
}
