#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "sim/SerialLine.h"

namespace test {

/// A modem at the far end of a line that answers what a test has written down, and knows nothing
/// else. Every command is echoed and answered "OK" unless told otherwise.
class ScriptedModem final : public sim::LinePeer {
public:
    static constexpr char Silence[] = "";  ///< as an answer: not even the echo comes back

    explicit ScriptedModem(sim::SerialLine& connectedLine) : line(connectedLine) {
        line.connect(this);
    }
    ~ScriptedModem() { line.connect(nullptr); }

    /// The answers to one command, in order; the last one stays. "lines" stands between the echo
    /// and the end, as it comes.
    void script(const std::string& command, std::deque<std::string> lines) {
        const std::lock_guard<std::mutex> held(mutex);
        answers[command] = std::move(lines);
    }

    /// The command lines that have arrived since the last call, each followed by a blank; an empty
    /// one is only the blank.
    std::string takeCommands() {
        const std::lock_guard<std::mutex> held(mutex);
        return std::exchange(commands, {});
    }
    bool hasHeard(const std::string& command) {
        const std::lock_guard<std::mutex> held(mutex);
        return commands.find(command) != std::string::npos;
    }

    void received(std::string_view arrived) override {
        const std::lock_guard<std::mutex> held(mutex);
        for (const char byte : arrived) {
            if (byte == '\r')
                answer(std::exchange(pending, {}));
            else
                pending += byte;
        }
    }

private:
    void answer(const std::string& command) {
        commands += command + " ";
        if (command.empty())
            return;
        const auto found = answers.find(command);
        std::string reply = "\r\nOK\r\n";
        if (found != answers.end()) {
            reply = found->second.front();
            if (found->second.size() > 1)
                found->second.pop_front();
        }
        if (!reply.empty())
            line.send(command + "\r" + reply);
    }

    sim::SerialLine& line;
    std::mutex mutex;  // guards everything below
    std::map<std::string, std::deque<std::string>> answers;
    std::string commands;
    std::string pending;
};

}  // namespace test
