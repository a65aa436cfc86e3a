#pragma once

#include <map>
#include <string>
#include <vector>

#include "sim/Clock.h"

namespace sim {

/// The SIM card in the radio module.
struct RadioSim {
    enum State { Absent, Broken, Wrong, Busy, PinNeeded, PukNeeded, Ready };
    static constexpr int PinTries = 3;

    State state = PinNeeded;  ///< as it is after power-up, then as it has become
    std::string pin = "1234";
    std::string puk = "12345678";
    int triesLeft = PinTries;
};

/// The network around the module.
struct RadioNetwork {
    enum Coverage { None, Home, Roaming, Denied };

    Coverage coverage = Home;
    Nanoseconds registrationTime = std::chrono::seconds(2);  ///< from ready to registered
    int dBm = -71;                                           ///< received power
    std::string name = "Sim Net";
    std::string number = "00101";
    int channel = 736;

    /// The address that it gives the terminal.
    static constexpr char TerminalAddress[] = "10.64.64.64";
};

/// What the radio module's commands do: the V.250 basic commands, those of 3GPP TS 27.007 that
/// data terminals use, and the module's own ("#"). Holds the SIM's, the network's and the module's
/// state; sends nothing itself. Its owner calls it under one lock of its own.
class RadioCommands {
public:
    RadioSim sim;
    RadioNetwork network;

    /// What the module has to do besides answering.
    enum class Effect { None, Multiplex, GoOnline, HangUp, Restart, PowerOff };

    struct Answer {
        std::string lines;   ///< each ends with '\n'
        std::string result;  ///< the final line
        Nanoseconds delay{0};
        Effect effect = Effect::None;
        unsigned longestInformation = 31;  ///< of frames, for Multiplex
    };

    RadioCommands() { powerUp(); }

    /// The settings back to what they are by themselves; the SIM asks for its PIN again.
    void powerUp();

    /// One command line, from "AT" on and without its end.
    Answer execute(const std::string& line);

    /// A result or information line the way the settings want it. Empty when results are off.
    std::string formatResult(const std::string& result) const;
    std::string formatLines(const std::string& lines) const;

    void setCoverage(RadioNetwork::Coverage coverage);
    void setSimState(RadioSim::State state);

    int registration() const;        ///< as in "+CREG:"
    std::string takeUnsolicited();   ///< lines that have become due by themselves, as in Answer
    Nanoseconds nextChange() const;  ///< time until the registration changes by itself; 0: not
    bool isEchoing() const { return echo; }
    bool isAttached() const { return attached && isRegistered(); }
    bool sleepsWithoutDtr() const { return values.at("+CFUN") == 5; }
    int fixedSpeed() const { return values.at("+IPR"); }  ///< 0: takes any

private:
    struct Command {
        std::string name;
        std::string tail;  // "?", "=?", or "=" and the parameters

        bool isQuestion() const { return tail == "?"; }
        bool isTest() const { return tail == "=?"; }
        bool isSetting() const { return tail.size() > 1 && tail[0] == '=' && !isTest(); }
        std::vector<std::string> parameters() const;  // without their quotes; one at least
    };

    // Result codes of "+CME ERROR:".
    enum Error {
        NotAllowed = 3,
        NotSupported = 4,
        SimNotInserted = 10,
        SimPinRequired = 11,
        SimPukRequired = 12,
        SimFailure = 13,
        SimBusy = 14,
        SimWrong = 15,
        IncorrectPassword = 16,
        NoNetworkService = 30,
        IncorrectParameters = 50,
        UnspecifiedGprsError = 148
    };
    struct ErrorText;
    static const ErrorText ErrorTexts[];

    struct Entry;
    static const Entry Entries[];

    static int toNumber(const std::string& text);  // -1 for what is none
    static std::string quoted(const std::string& text) { return '"' + text + '"'; }
    static std::vector<Command> split(const std::string& line);
    bool executeOne(const Command& command, Answer& answer);
    bool executeBasic(const Command& command, Answer& answer);
    bool executeSetting(const Command& command, Answer& answer);
    bool refuse(Answer& answer, int code) const;

    bool pin(const Command& command, Answer& answer);
    bool operatorSelection(const Command& command, Answer& answer);
    bool registrationReport(const Command& command, Answer& answer);
    bool signalQuality(const Command& command, Answer& answer);
    bool attach(const Command& command, Answer& answer);
    bool context(const Command& command, Answer& answer);
    bool quality(const Command& command, Answer& answer);
    bool address(const Command& command, Answer& answer);
    bool enterData(const Command& command, Answer& answer);
    bool dial(const Command& command, Answer& answer);
    bool clock(const Command& command, Answer& answer);
    bool identity(const Command& command, Answer& answer);
    bool multiplex(const Command& command, Answer& answer);
    bool cellMonitor(const Command& command, Answer& answer);
    bool shutDown(const Command& command, Answer& answer);

    bool isRegistered() const;
    int simError() const;  // 0: it is ready
    Nanoseconds registeredIn() const;
    void search();

    std::map<std::string, int> values;  // of the settings that are one number
    std::map<int, std::string> contexts;
    std::map<std::string, std::string> qualities;  // by command and context
    bool echo = true;
    bool verbose = true;
    bool quiet = false;
    bool searching = true;
    bool attached = false;
    int operatorFormat = 0;
    int announced = 0;  // the registration that was last reported unasked
    Nanoseconds searchBegin{0};
    Nanoseconds clockOffset{0};  // of the module's clock from the terminal's
    std::string clockZone = "+00";
};

}  // namespace sim
