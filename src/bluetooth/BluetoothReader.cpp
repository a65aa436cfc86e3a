#include "bluetooth/BluetoothReader.h"

#include "bluetooth/BluetoothModule.h"
#include "foundation/Mutex.h"
#include "io/NoCancellation.h"

namespace {

constexpr int PollMs = 250;
constexpr int StopMs = 10000;

}  // namespace

BluetoothReader::BluetoothReader(BluetoothModule* polledModule) : module(polledModule) { start(); }

BluetoothReader::~BluetoothReader() {
    const io::NoCancellation scope;
    requestStop();
    {
        const LockGuard<Cond> held(wake);
        isEnding = true;
        wake.signal();
    }
    stop(StopMs, false);
}

void BluetoothReader::startRead() {
    const LockGuard<Cond> held(wake);
    wake.signal();
}

void BluetoothReader::run() {
    while (!stopRequested()) {
        module->pollIncomingData(PollMs);
        const LockGuard<Cond> held(wake);
        if (!isEnding)
            wake.wait();
    }
}
