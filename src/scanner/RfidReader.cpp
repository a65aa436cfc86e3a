#include "scanner/RfidReader.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "gui/GuiLibrary.h"
#include "io/NoCancellation.h"
#include "power/SystemEvents.h"
#include "scanner/RfidProtocol.h"
#include "scanner/ScanRecord.h"

namespace {

constexpr int ScanMs = 5000;
constexpr int StopMs = 10000;
constexpr int AbortStepMs = 100;

// A post that comes between the worker's look at its flags and its wait is lost: it looks again.
constexpr int RequestWaitMs = 1000;

/// Whether the answer is a tag's and whole, in each of its lengths.
bool isTag(const unsigned char* answer, ssize_t count) {
    const auto size = static_cast<size_t>(count);
    if (count <= static_cast<ssize_t>(rfid::HeaderSize) || size > rfid::MaxAnswer)
        return false;
    const size_t dataSize = answer[2] | static_cast<size_t>(answer[3]) << 8;
    return answer[0] == rfid::TagRead && size == rfid::HeaderSize + answer[1] + dataSize;
}

/// Writes the bytes as text, "04A1", and ends it.
void writeHex(const unsigned char* bytes, size_t count, char* text) {
    static constexpr char Digits[] = "0123456789ABCDEF";
    for (size_t i = 0; i < count; ++i) {
        *text++ = Digits[bytes[i] >> 4];
        *text++ = Digits[bytes[i] & 0xF];
    }
    *text = '\0';
}

}  // namespace

/// The time in which the worker has the device open, or is about to open it.
class RfidReader::DeviceInUse {
public:
    explicit DeviceInUse(RfidReader& user) : reader(user) { reader.isReading = true; }
    DeviceInUse(const DeviceInUse&) = delete;
    DeviceInUse& operator=(const DeviceInUse&) = delete;
    ~DeviceInUse() {
        reader.isReading = false;
        // Before the device is closed: who sees it closed can arm the next read.
        reader.readRequested = false;
        MutexGuard held(reader.guard);
        reader.device.reset();
    }

private:
    RfidReader& reader;
};

RfidReader::RfidReader(RfidReaderType readerType) : type(readerType) { period = ScanMs; }

RfidReader::~RfidReader() {
    const io::NoCancellation scope;
    RfidReader::shutdown();
}

char const* RfidReader::devicePath() const {
    return type == RFID_READER_AMS ? rfid::AmsPath : rfid::NxpPath;
}

bool RfidReader::initialize() {
    {
        MutexGuard held(guard);
        if (device.isOpen())
            return false;
    }
    if (!io::FileDescriptor(::open(devicePath(), O_RDONLY | O_CLOEXEC)).isOpen())
        return false;
    return start();
}

bool RfidReader::shutdown() {
    RfidReader::stopRead();
    requestStop();
    requests.post();
    // The driver forgets an abort that comes before its read has begun: repeated until that is
    // over.
    int waited = 0;
    for (; isReading && waited < StopMs; waited += AbortStepMs) {
        Thread::sleep(AbortStepMs);
        abortRead();
    }
    const bool isGone = stop(StopMs - waited, false);
    readRequested = false;  // what nobody has read is not read after the next start either
    return isGone;
}

bool RfidReader::initRead() {
    readRequested = true;
    requests.post();
    return true;
}

bool RfidReader::startRead() { return startTimer(); }

bool RfidReader::stopRead() {
    abortRead();
    return stopTimer();
}

void RfidReader::abortRead() {
    MutexGuard held(guard);
    if (!device.isOpen())
        return;
    aborted = true;
    request(rfid::AbortRead, 0);
}

void RfidReader::onTimer() { stopRead(); }

void RfidReader::setReadAreas(RfidBank bank, int first, int last) {
    MutexGuard held(guard);
    area = {bank, first, last};
}

void RfidReader::run() {
    while (!stopRequested()) {
        if (!readRequested) {
            requests.pend(RequestWaitMs);
            continue;
        }
        if (!readTag())
            return;
    }
}

/// One read, from opening the device to closing it. False when it cannot be opened.
bool RfidReader::readTag() {
    DeviceInUse inUse(*this);
    // Looked at last: a shutdown that has not seen the device in use has asked for its stop before.
    if (stopRequested())
        return true;
    ReadArea wanted;
    {
        MutexGuard held(guard);
        aborted = false;
        device.reset(::open(devicePath(), O_RDONLY | O_CLOEXEC));
        if (!device.isOpen())
            return false;
        wanted = area;
    }
    configure(wanted);
    if (!mayRead())
        return true;
    unsigned char answer[rfid::MaxAnswer + 1];
    const ssize_t count = ::read(device.get(), answer, rfid::MaxAnswer);
    isReading = false;
    if (stopRequested() || !isTag(answer, count))
        return true;
    answer[count] = '\0';
    const size_t idSize = answer[1];
    char id[2 * rfid::MaxIdentifier + 1];
    writeHex(answer + rfid::HeaderSize, idSize, id);
    const auto* const data = reinterpret_cast<char const*>(answer + rfid::HeaderSize + idSize);
    if (*id || *data)
        submit(id, data);
    return true;
}

void RfidReader::configure(const ReadArea& wanted) {
    if (type == RFID_READER_AMS) {
        if (wanted.bank < RFID_BANK_0 || wanted.bank > RFID_BANK_4)
            return;
        const bool isWhole = wanted.bank == RFID_BANK_0;
        request(rfid::SetAreaFirst, isWhole ? 0 : wanted.first);
        request(rfid::SetAreaLast, isWhole ? 0 : wanted.last);
        // Bank 0 and bank 1 are the same memory.
        request(rfid::SelectBank, isWhole ? 0 : wanted.bank - 1);
        return;
    }
    request(rfid::PrepareRead, 0);
    if (wanted.bank != RFID_BANK_4)
        return;
    // Counted wide: the last block may be the greatest number. A wrong area may take very long.
    for (long long block = wanted.first; block <= wanted.last && mayRead(); ++block)
        request(rfid::SelectBlock, static_cast<int>(block));
}

void RfidReader::request(unsigned number, int argument) const {
    ::ioctl(device.get(), number, static_cast<unsigned long>(argument));
}

/// Nobody has asked for an end since the device was opened.
bool RfidReader::mayRead() {
    MutexGuard held(guard);
    return !aborted && !stopRequested();
}

void RfidReader::submit(char const* id, char const* data) {
    ScanRecord record{type == RFID_READER_AMS ? ScanRecord::RfidOfType1 : ScanRecord::Rfid, id,
                      data, 0};
    const events::WorkerWindowingGuard windowing(*this);
    if (!windowing.isHeld())
        return;
    stopTimer();
    GuiLibrary::broadcastSystemEvent(events::ScannedCode, &record);
}
