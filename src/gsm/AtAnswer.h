#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

/// What the radio module's answers say. Pure functions over texts that nobody vouches for: blanks,
/// missing fields and further lines are accepted, and nothing that does not parse.
namespace at {

/// The network registration, out of the line "+CREG: <mode>,<status>[,...]" (3GPP TS 27.007): 0 to
/// 10, of which 1 is registered at home and 5 registered while roaming. Notices of a change, which
/// carry the status alone, are passed over.
std::optional<int> registrationStatus(std::string_view answer);

/// The number behind the first comma; 0 when there is none.
int secondNumber(const std::string& answer);

inline bool isRegistered(int status) {
    constexpr int AtHome = 1;
    constexpr int Roaming = 5;
    return status == AtHome || status == Roaming;
}

/// A cell as "#MONI:" describes it. A field that is missing, or holds no number that it could be,
/// is empty.
struct Cell {
    std::string networkName;
    std::optional<int> bsic;     // base station's identity code
    std::optional<int> rxQual;   // reception quality, 0 (best) to 7
    std::optional<int> channel;  // absolute radio frequency channel number
    std::optional<int> power;    // received power in dBm, -200 to 0
};

/// The cell out of "#MONI: <name> BSIC:<n> RxQual:<n> ... ARFCN:<n> PWR:<n>dbm ...", the fields in
/// any order. Without a "#MONI:" there is none.
std::optional<Cell> servingCell(std::string_view answer);

/// The time out of the line "+CCLK: "yy/MM/dd,hh:mm:ss±zz"", a date of 2000 to 2099. The zone, in
/// quarters of an hour, goes to `tm_gmtoff` as it stands; a missing one counts as 0. Whether
/// daylight saving is in force is not known (-1).
std::optional<tm> clockTime(std::string_view answer);

/// The text up to the first carriage return. Empty when that is "OK": the answer had no text then.
std::string firstLine(std::string_view answer);

}  // namespace at
