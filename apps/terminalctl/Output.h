#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "io/FileStream.h"

namespace ctl {

/// What a member of a record is. The first one stands for what the device does not tell.
using Value = std::variant<std::nullptr_t, bool, int64_t, std::string>;

/// One thing to tell: its members in the order in which they are told.
using Record = std::vector<std::pair<std::string, Value>>;

/// Where a command tells what it has found: a line of text or a JSON object for each record. Any
/// thread may show records.
///
/// From its making on it has standard output to itself: what the library and the programs that it
/// starts print there goes to standard error.
class Output {
public:
    explicit Output(bool jsonWanted);

    /// As text: `text` with each "{member}" replaced by that member of the record.
    void show(const char* text, const Record& record);

    /// Whether something could not be written, other than for a reader that has enough.
    bool hasFailed() const { return failed; }

private:
    const bool asJson;
    const io::FileStream stream;
    std::atomic<bool> failed{false};
};

}  // namespace ctl
