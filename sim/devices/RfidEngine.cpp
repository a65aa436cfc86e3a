#include "sim/devices/RfidEngine.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "scanner/RfidProtocol.h"
#include "sim/Text.h"
#include "sim/posix/Real.h"

namespace sim {
namespace {

std::string hexOf(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes)
        text += hex(static_cast<uint8_t>(byte));
    return text;
}

std::string frameOf(const std::string& id, const std::string& data) {
    std::string frame(1, '\0');
    frame += static_cast<char>(id.size());
    frame += static_cast<char>(data.size() & 0xFF);
    frame += static_cast<char>(data.size() >> 8);
    return frame + id + data;
}

}  // namespace

std::string RfidTag::blocks(size_t bank, unsigned first, unsigned last) const {
    const std::string& bytes = banks[bank];
    const size_t begin = std::min(first * BlockSize, bytes.size());
    const size_t end = std::min((size_t{last} + 1) * BlockSize, bytes.size());
    return bytes.substr(begin, end > begin ? end - begin : 0);
}

/// One open of an engine, with what it has been told to read. The engine's lock guards all of it.
class RfidFile : public ModelFile {
public:
    RfidFile(const std::string& path, int flags, std::shared_ptr<RfidEngine> openedEngine,
             RfidEngine::Type engineType)
        : ModelFile(path, flags, openedEngine), engine(std::move(openedEngine)), type(engineType) {}

    void closing() override {
        ModelFile::closing();
        note("close");
    }

    ssize_t read(void* buffer, size_t size) override {
        begin();
        for (;;) {
            if (const auto result = end(buffer, size))
                return *result;
            pollfd file{descriptor(), POLLIN, 0};
            if (SIM_REAL(poll)(&file, 1, -1) < 0)
                return -1;
        }
    }

    int ioctl(unsigned long request, void* argument) override {
        const auto value = static_cast<unsigned>(reinterpret_cast<uintptr_t>(argument));
        const std::lock_guard<std::mutex> held(engine->mutex);
        const bool isKnown = request == rfid::AbortRead ||
                             (type == RfidEngine::Type::Nxp ? configureNxp(request, value)
                                                            : configureAms(request, value));
        if (!isKnown)
            return failWith(ENOTTY);
        if (request == rfid::AbortRead)
            abort();
        return 0;
    }

    /// There may be something new for a read.
    void wake() { setReadable(true); }

    void note(const std::string& text) const { engine->journal.note("rfid", text); }

private:
    void begin() {
        const std::lock_guard<std::mutex> held(engine->mutex);
        note("reading");
        isReading = true;
        isAborted = false;
    }

    /// The result of the read in progress, if it ends here.
    std::optional<ssize_t> end(void* buffer, size_t size) {
        const std::lock_guard<std::mutex> held(engine->mutex);
        setReadable(false);
        std::string frame;
        if (!engine->answers.empty()) {
            frame = std::exchange(engine->answers.front(), {});
            engine->answers.pop_front();
        } else if (isAborted) {
            isReading = false;
            return failWith(ECANCELED);
        } else if (engine->tag) {
            frame = frameOf(engine->tag->id, dataOf(*engine->tag));
            note("read " + hexOf(engine->tag->id));
        } else {
            return std::nullopt;
        }
        isReading = false;
        const size_t count = std::min(frame.size(), size);
        memcpy(buffer, frame.data(), count);
        return static_cast<ssize_t>(count);
    }

    /// Without a read in progress it has nothing to end.
    void abort() {
        note("abort");
        isAborted = isReading && !engine->isStubborn;
        if (isAborted)
            wake();
    }

    bool configureNxp(unsigned long request, unsigned value) {
        switch (request) {
        case rfid::PrepareRead: note("prepare"); return true;
        case rfid::SelectBlock:
            selected.push_back(value);
            note("block " + std::to_string(value));
            return true;
        default: return false;
        }
    }

    bool configureAms(unsigned long request, unsigned value) {
        switch (request) {
        case rfid::SetAreaFirst: note("first " + std::to_string(first = value)); return true;
        case rfid::SetAreaLast: note("last " + std::to_string(last = value)); return true;
        case rfid::SelectBank:
            if (value >= std::tuple_size<decltype(RfidTag::banks)>::value)
                return false;
            note("bank " + std::to_string(bank = value));
            return true;
        default: return false;
        }
    }

    std::string dataOf(const RfidTag& tag) const {
        if (type == RfidEngine::Type::Ams) {
            const bool isWhole = first == 0 && last == 0;
            return isWhole ? tag.banks[bank] : tag.blocks(bank, first, last);
        }
        if (selected.empty())
            return tag.banks[0];
        std::string data;
        for (const unsigned block : selected)
            data += tag.blocks(RfidTag::UserBank, block, block);
        return data;
    }

    const std::shared_ptr<RfidEngine> engine;
    const RfidEngine::Type type;
    bool isReading = false;
    bool isAborted = false;
    unsigned first = 0, last = 0, bank = 0;
    std::vector<unsigned> selected;
};

RfidEngine::RfidEngine(Journal& eventJournal) : journal(eventJournal) {}

void RfidEngine::fit(std::optional<Type> type) {
    const std::lock_guard<std::mutex> held(mutex);
    fitted = type;
}

void RfidEngine::present(const RfidTag& newTag) {
    const std::lock_guard<std::mutex> held(mutex);
    tag = newTag;
    wakeReaders();
}

void RfidEngine::remove() {
    const std::lock_guard<std::mutex> held(mutex);
    tag.reset();
}

void RfidEngine::answerNext(const std::string& frame) {
    const std::lock_guard<std::mutex> held(mutex);
    answers.push_back(frame);
    wakeReaders();
}

void RfidEngine::setStubborn(bool stubborn) {
    const std::lock_guard<std::mutex> held(mutex);
    isStubborn = stubborn;
}

std::shared_ptr<OpenFile> RfidEngine::open(const std::string& path, int flags) {
    const Type type = path == rfid::AmsPath ? Type::Ams : Type::Nxp;
    const std::lock_guard<std::mutex> held(mutex);
    if (fitted != type) {
        errno = ENODEV;
        return nullptr;
    }
    auto file = std::make_shared<RfidFile>(
        path, flags, std::static_pointer_cast<RfidEngine>(shared_from_this()), type);
    file->note("open");
    opens.erase(
        std::remove_if(opens.begin(), opens.end(), [](const auto& open) { return open.expired(); }),
        opens.end());
    opens.push_back(file);
    return file;
}

void RfidEngine::wakeReaders() {
    for (const auto& open : opens) {
        if (const auto file = open.lock())
            file->wake();
    }
}

}  // namespace sim
