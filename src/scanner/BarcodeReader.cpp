#include "scanner/BarcodeReader.h"

#include <cstring>
#include <string_view>

#include "gui/GuiLibrary.h"
#include "io/NoCancellation.h"
#include "power/PowerManager.h"
#include "power/SystemEvents.h"
#include "scanner/BarcodeProtocol.h"
#include "scanner/ScanRecord.h"

namespace {

constexpr int NotInitialized = -1;
constexpr int Initialized = 1;

constexpr int ScanMs = 5000;
constexpr int EngineStartMs = 100;
constexpr int InputWaitMs = 200;
constexpr int BurstGapMs = 100;
constexpr int StopMs = 10000;

constexpr std::string_view WhiteSpace = " \t\v\f\r\n";

PowerManager& power() { return *PowerManager::getPowerManager(); }

/// Cuts the white space around a code. Empty when nothing is left, or only a single character: that
/// is noise, never a code.
std::string_view trimmed(std::string_view burst) {
    const size_t first = burst.find_first_not_of(WhiteSpace);
    const size_t last = burst.find_last_not_of(WhiteSpace);
    return first == last ? std::string_view() : burst.substr(first, last - first + 1);
}

}  // namespace

BarcodeReader::BarcodeReader() : initState(NotInitialized) { period = ScanMs; }

BarcodeReader::~BarcodeReader() {
    const io::NoCancellation scope;
    stopTimer();  // a read may have been started without initialize()
    if (initState != NotInitialized)
        BarcodeReader::shutdown();
    stop(StopMs, false);  // a worker that has shut the reader down itself is still to be joined
}

bool BarcodeReader::initialize() {
    int expected = NotInitialized;
    if (!initState.compare_exchange_strong(expected, Initialized))
        return false;
    if (!power().scannerPowerUp() || !open(barcode::DevicePath))
        return false;
    setSpeed(barcode::Baud);
    setCharBits(8);
    setParity(S_PARITY_NONE);
    setStopBits(1);
    setFlowControl(S_FLOW_NONE);
    Thread::sleep(EngineStartMs);
    send(barcode::SetUp);
    stop(StopMs, false);  // as in the destructor
    return start();
}

bool BarcodeReader::shutdown() {
    stopTimer();
    stop(StopMs, false);  // before the port goes that the worker waits on
    close();
    triggerActive = false;  // the engine forgets the scan with its power
    initState = NotInitialized;
    return power().scannerPowerDown();
}

bool BarcodeReader::initRead() { return power().scannerSetAim(true); }

bool BarcodeReader::startRead() {
    power().scannerSetAim(false);
    const bool timerStarted = startTimer();
    // Set before the engine hears of it: a code that comes at once clears the flag again.
    if (triggerActive.exchange(true))
        return timerStarted;
    send(barcode::StartScanning);
    return true;
}

bool BarcodeReader::stopRead() {
    power().scannerSetAim(false);
    if (triggerActive.exchange(false))
        send(barcode::StopScanning);
    return stopTimer();
}

void BarcodeReader::onTimer() { stopRead(); }

void BarcodeReader::send(char const* command) {
    writeData(command, static_cast<unsigned>(std::strlen(command)));
    drainOutput();
}

void BarcodeReader::run() {
    while (!stopRequested()) {
        if (!isInputPending(InputWaitMs)) {
            if (isHungUp())
                Thread::sleep(InputWaitMs);  // the wait returns at once then
            continue;
        }
        char buffer[MaxBurst + 1];
        const size_t length = readBurst(buffer);
        if (stopRequested())
            return;
        const std::string_view code = trimmed({buffer, length});
        if (code.empty())
            continue;
        std::memmove(buffer, code.data(), code.size());
        buffer[code.size()] = '\0';
        triggerActive = false;  // the engine stops by itself after a good read
        submit(buffer);
    }
}

/// Reads until the line is quiet for a moment. The number of bytes; 0 for a burst that does not
/// fit, of which nothing is used.
size_t BarcodeReader::readBurst(char* buffer) {
    size_t length = 0;
    bool fits = true;
    while (!stopRequested() && isInputPending(BurstGapMs)) {
        const int count = readData(buffer + length, static_cast<unsigned>(MaxBurst - length));
        if (count < 0)
            break;
        length += static_cast<size_t>(count);
        if (count == 0) {
            fits = false;
            length = 0;
        }
    }
    return fits ? length : 0;
}

void BarcodeReader::submit(char const* code) {
    ScanRecord record{ScanRecord::Barcode, nullptr, code, 0};
    const events::WorkerWindowingGuard windowing(*this);
    if (!windowing.isHeld())
        return;
    stopTimer();
    GuiLibrary::broadcastSystemEvent(events::ScannedCode, &record);
}
