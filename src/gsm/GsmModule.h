#pragma once

#include <atomic>
#include <ctime>
#include <string>

#include "foundation/Mutex.h"
#include "io/ModemPort.h"

/// What GsmModule::readNetworkInfo() tells. A number that the module has not given is -1, the power
/// GSM_NETWORK_INFO::NoPower.
struct GSM_NETWORK_INFO {
    static constexpr int NoPower = -1000;  ///< dBm that no module tells

    int registrationStatus = 0;  ///< as in "+CREG:": 1 at home, 2 searching, 5 roaming, ...
    std::string operatorName;    ///< empty while there is none
    int power = NoPower;         ///< received power, dBm
    int channel = -1;            ///< absolute radio frequency channel number
    int bsic = -1;               ///< base station's identity code
    int rxQual = -1;             ///< reception quality, 0 (best) to 7
};

/// The AT-command driver of the GSM/GPRS radio module: its command channel, and the procedures that
/// are dialogues on it. It works on the module's own line and on a port of the multiplexer alike.
///
/// Any thread may call it. Each procedure holds the module's lock for its whole dialogue, pauses
/// included, so that answers never mix; a second caller waits for the end of the first one's. Only
/// writeCommand() and readAnswer() take no lock: whoever calls them does, with lock().
///
/// A command has succeeded when its answer is "OK" and nothing else. On a closed module every
/// procedure fails at once and sends nothing. The time limits given below are how long the module
/// may keep silent before and between the bytes of an answer.
class GsmModule {
public:
    /// How much of the module is at work, and how it saves power: the argument of "AT+CFUN=".
    enum ModulePowerMode : int {
        POWER_MODE_MINIMUM = 0,      ///< neither radio nor SIM
        POWER_MODE_FULL = 1,         ///< everything on
        POWER_MODE_RADIO_OFF = 4,    ///< SIM only
        POWER_MODE_FULL_SAVING = 5,  ///< everything, asleep between its uses
        POWER_MODE_LAST = 127
    };

    /// The bands that the module searches: the argument of "AT#BND=".
    enum ModuleFreqBand : int {
        BAND_900_1800 = 0,
        BAND_900_1900 = 1,
        BAND_850_1800 = 2,
        BAND_850_1900 = 3
    };

    /// Only notes the device node, e.g. "/dev/ttyAT1".
    explicit GsmModule(const char* device);
    GsmModule(const GsmModule&) = delete;
    GsmModule& operator=(const GsmModule&) = delete;

    /// Closes an open port.
    virtual ~GsmModule();

    /// Opens the port with 115200 baud, 8N1, no flow control. False when that fails, and also when
    /// it is open already, which changes nothing.
    bool open();

    /// Closes the port, or does nothing without one. True.
    bool close();

    /// Sets up a module that has just been powered: probes it until it answers (up to five times,
    /// 200 ms), then error numbers, line speed, hardware flow control at both ends and the command
    /// level, with 500 ms each. False at the first of these that fails; that the probing has failed
    /// is no failure.
    bool initComm();

    /// Unlocks the SIM with its PIN, in up to ten steps of 5 s, with pauses of up to 1 s while the
    /// SIM is missing or busy. False when the SIM does not get ready, and at once when it asks for
    /// its PUK or refuses the PIN with +CME ERROR: 15 or 16, which is sent no second time then.
    bool initSIM(const char* pin);

    /// Has the module choose its operator, in up to three attempts of 5 s, then asks up to `tries`
    /// times (10 s, 1 s apart) whether it is registered. With 0 it does not wait for that. False
    /// when the module refuses, is not registered after all tries or has ignored three in a row,
    /// and with a negative number.
    bool searchNetwork(int tries);

    /// Attaches to the GPRS service (5 s).
    bool attachGprs();

    /// Defines context 1: IP, the access point's name, an address given by the network, no
    /// compression; then the least quality of service, minimum and requested. Each command has 1 s
    /// and is sent up to three times, 500 ms apart: a SIM that has just been unlocked may be busy.
    /// False also for a name that cannot stand between double quotes.
    bool initGprs(const char* apn);

    /// Sets the band, after switching on its automatic selection (2 s each). True when the module
    /// has accepted both. False, with nothing sent, for an unknown band.
    bool setFrequency(ModuleFreqBand band);

    /// Sets the power mode; the module may have to leave the network first, so it has 5 s. False,
    /// with nothing sent, outside 0 to 127.
    bool powerSaveMode(ModulePowerMode mode);

    /// Asks for the serving cell and for the registration (2 s each). False, with `info` unchanged,
    /// when the registration cannot be told, or when the module is registered and does not tell the
    /// received power. While it is not registered, a cell is not expected.
    bool readNetworkInfo(GSM_NETWORK_INFO& info);

    /// Reads the module's clock (1 s): a date of 2000 to 2099. `tm_gmtoff` is the module's zone, in
    /// quarters of an hour. False, with `time` unchanged, when the answer holds no valid time.
    bool getRTC(tm* time);

    /// Sets the module's clock (1 s) to a date of 2000 to 2099. `tm_gmtoff` is sent as it stands
    /// behind a sign of its own: a negative one goes out with two minus signs.
    bool setRTC(tm* time);

    /// The firmware's version, empty when the module does not tell (500 ms). It is asked once; the
    /// answer is kept, also while the port is closed.
    std::string getVersion();

    /// Sends one command line, 20 ms after whatever was before, and forgets what the module has
    /// sent until then. The caller holds the lock. False when the line was not taken whole.
    bool writeCommand(const char* command);

    /// Reads the answer to a command: up to 128 bytes, the echo among them. The caller holds the
    /// lock. The result is a ModemPort::Answer; -1 too when not even the module's echo has come
    /// back whole. `answer` gets what stands behind the echo, the result code included; it stays as
    /// it is when there was no echo.
    int readAnswer(std::string* answer, int timeoutMs);

    /// The same for whoever wants the result alone.
    int readAnswer(int timeoutMs);

    /// Whether the answer begins with exactly these bytes.
    static bool answerStartsWith(std::string& answer, const char* prefix);

    /// Waits for the end of the dialogue in progress. Not recursive: until unlock() this thread
    /// calls writeCommand() and readAnswer() alone.
    void lock() { mutex.lock(); }

    /// Ends a dialogue begun with lock().
    void unlock() { mutex.unlock(); }

private:
    static constexpr unsigned AnswerSize = 128;
    static constexpr unsigned LongAnswerSize = 512;

    int collect(std::string* answer, unsigned size, int timeoutMs);
    int exchange(const std::string& command, int timeoutMs, std::string* answer = nullptr,
                 unsigned size = AnswerSize);
    bool succeeds(const std::string& command, int timeoutMs);
    bool succeedsWithin(const std::string& command, int timeoutMs, int sends, int pauseMs,
                        unsigned size = AnswerSize);
    bool awaitRegistration(int tries);

    const std::string devicePath;
    std::string version;  // guarded by mutex

    // Owned; changed under mutex only. Atomic for open(): a second one must not wait for a dialogue
    // in progress.
    std::atomic<ModemPort*> port{nullptr};

    Mutex mutex;  // held for a whole dialogue
};
