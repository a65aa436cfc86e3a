#pragma once

#include <nlohmann/json.hpp>

#include "io/FileStream.h"

namespace ctl {

/// One thing to tell, with its members in the order in which they are told. A null is a value that
/// the device does not give.
using Record = nlohmann::ordered_json;

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

private:
    const bool asJson;
    const io::FileStream stream;
};

}  // namespace ctl
