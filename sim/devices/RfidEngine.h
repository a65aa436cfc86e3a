#pragma once

#include <array>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "sim/Device.h"
#include "sim/Journal.h"

namespace sim {

/// A tag: its identifier's bytes and its memory banks, which are made of blocks of 4 bytes.
struct RfidTag {
    static constexpr size_t BlockSize = 4;
    static constexpr size_t UserBank = 3;

    std::string id;
    std::array<std::string, 4> banks;

    /// The blocks from `first` to `last`, as far as the bank has them.
    std::string blocks(size_t bank, unsigned first, unsigned last) const;
};

/// The RFID engine with its driver: one of two types, each behind a node of its own. A read waits
/// until a tag is in the field, the read is aborted, or the caller is cancelled or gets a signal.
///
/// A read of type Nxp gives the tag's first bank, or of its user bank the blocks that were selected
/// since the device was opened; one of type Ams gives an area of blocks of one bank, all of it
/// while the area is 0 to 0.
class RfidEngine : public Device {
public:
    enum class Type { Nxp, Ams };

    explicit RfidEngine(Journal& journal);

    /// The engine that is fitted; the nodes of all others cannot be opened.
    void fit(std::optional<Type> type);

    /// Holds a tag in the field until it is removed. It replaces the one that is there.
    void present(const RfidTag& tag);
    void remove();

    /// The next read ends at once with these bytes, whatever they are, as far as they fit.
    void answerNext(const std::string& frame);

    /// Aborts are ignored from now on.
    void setStubborn(bool stubborn);

    std::shared_ptr<OpenFile> open(const std::string& path, int flags) override;

private:
    friend class RfidFile;

    void wakeReaders();

    Journal& journal;

    std::mutex mutex;  // guards what follows, and the state of the opens
    std::optional<Type> fitted = Type::Ams;
    std::optional<RfidTag> tag;
    std::deque<std::string> answers;
    bool isStubborn = false;
    std::vector<std::weak_ptr<class RfidFile>> opens;
};

}  // namespace sim
