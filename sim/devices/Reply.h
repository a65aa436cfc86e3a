#pragma once

#include <climits>
#include <functional>
#include <string>

#include "sim/Clock.h"

namespace sim {

/// How a module that takes command lines answers one. Made by one of the functions, then bent:
/// `Reply::error(10).after(500ms)`, `Reply::normal().cut(4)`.
class Reply {
public:
    static Reply normal();  ///< what it answers by itself
    /// Information lines, separated by '\n', and "OK".
    static Reply ok(const std::string& lines = "");
    static Reply error();          ///< "ERROR"
    static Reply error(int code);  ///< "+CME ERROR: code", whatever +CMEE says
    /// Information lines, separated by '\n', and a final line of any text.
    static Reply final(const std::string& result, const std::string& lines = "");
    static Reply raw(const std::string& bytes);  ///< exactly these bytes, after the echo
    static Reply silence();                      ///< hears the command and does nothing

    Reply after(Nanoseconds delay) const;            ///< late by this much simulated time
    Reply cut(size_t size) const;                    ///< only the first bytes, without the echo
    Reply garbled() const;                           ///< no byte of it as it should be
    Reply withoutEcho() const;                       ///< the command line is not echoed
    Reply then(std::function<void()> action) const;  ///< called when it has been sent

private:
    friend class RadioModule;
    friend class TextBluetoothModule;

    enum class Kind { Normal, Lines, Raw, Silence };

    template <class Member, class Value> Reply with(Member Reply::*member, Value value) const;
    std::string bend(std::string bytes) const;  // to what is sent of them

    Kind kind = Kind::Normal;
    std::string lines;
    std::string result;  // of Lines; or the bytes of Raw
    Nanoseconds delay{0};
    size_t most = std::string::npos;
    bool isGarbled = false;
    bool isEchoed = true;
    std::function<void()> action;
};

/// What a module answers certain command lines with.
struct ReplyRule {
    std::string command;  ///< the whole line, or its beginning and "*"
    Reply reply;
    int timesLeft = INT_MAX;  ///< for that many more lines; INT_MAX: for ever

    /// Whether it is for that line, and not used up. Counts the line, if so.
    bool takes(const std::string& line);
};

}  // namespace sim
