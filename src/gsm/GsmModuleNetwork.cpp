// SIM, registration and GPRS.

#include <algorithm>
#include <iterator>
#include <string_view>

#include "foundation/Thread.h"
#include "gsm/AtAnswer.h"
#include "gsm/GsmModule.h"

namespace {

constexpr int SimAttempts = 10;
constexpr int SimMs = 5000;
constexpr int OperatorMs = 5000;
constexpr int OperatorSends = 3;
constexpr int OperatorPauseMs = 500;
constexpr int RegistrationMs = 10000;
constexpr int RegistrationPauseMs = 1000;
constexpr int SilentPolls = 3;
constexpr int AttachMs = 5000;
constexpr int ContextMs = 1000;
constexpr int ContextSends = 3;
constexpr int ContextPauseMs = 500;
constexpr int BandMs = 2000;
constexpr int NetworkInfoMs = 2000;

constexpr char AskPin[] = "AT+CPIN?";
constexpr char AskRegistration[] = "AT+CREG?";

enum class SimStep { SendPin, Ready, Fail, AskAgain };

// The first beginning that matches decides; what matches none is asked again.
constexpr struct {
    const char* beginning;
    SimStep step;
    int pauseMs;
} SimAnswers[] = {
    {"+CPIN: SIM PIN", SimStep::SendPin, 0},
    {"+CPIN: SIM PUK", SimStep::Fail, 0},
    {"+CPIN: READY", SimStep::Ready, 0},
    {"OK\r\n", SimStep::Ready, 0},
    {"+CME ERROR: 10", SimStep::AskAgain, 1000},  // not inserted
    {"+CME ERROR: 13", SimStep::AskAgain, 500},   // failure
    {"+CME ERROR: 14", SimStep::AskAgain, 750},   // busy
    {"+CME ERROR: 15", SimStep::Fail, 0},         // wrong SIM
    {"+CME ERROR: 16", SimStep::Fail, 0},         // incorrect PIN
    {"", SimStep::AskAgain, 500},
};

/// Whether a text can stand between double quotes in a command.
bool isQuotable(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c >= ' ' && c <= '~' && c != '"'; });
}

}  // namespace

bool GsmModule::initSIM(const char* pin) {
    const MutexGuard held(mutex);
    std::string command = AskPin;
    for (int attempt = 0; attempt < SimAttempts && port; ++attempt) {
        std::string answer;  // of this attempt alone: a PIN is not sent again for an old question
        exchange(command, SimMs, &answer);
        const auto* found = std::begin(SimAnswers);
        while (!answerStartsWith(answer, found->beginning))
            ++found;
        switch (found->step) {
        case SimStep::SendPin:
            // It ends with a carriage return of its own, besides the channel's.
            command = "AT+CPIN=" + std::string(pin ? pin : "") + "\r";
            break;
        case SimStep::Ready: return true;
        case SimStep::Fail: return false;
        case SimStep::AskAgain:
            Thread::sleep(found->pauseMs);
            command = AskPin;
            break;
        }
    }
    return false;
}

bool GsmModule::searchNetwork(int tries) {
    const MutexGuard held(mutex);
    if (!port)
        return false;
    if (!succeedsWithin("AT+COPS=0,2", OperatorMs, OperatorSends, OperatorPauseMs)) {
        Thread::sleep(OperatorPauseMs);
        return false;
    }
    if (!succeeds("AT+COPS=3,2", OperatorMs) || tries < 0)
        return false;
    return tries == 0 || awaitRegistration(tries);
}

bool GsmModule::awaitRegistration(int tries) {
    int silent = 0;
    for (int poll = 0; poll < tries; ++poll) {
        if (poll != 0)
            Thread::sleep(RegistrationPauseMs);
        std::string answer;
        const int result = exchange(AskRegistration, RegistrationMs, &answer);
        // Any number behind the first comma counts here; readNetworkInfo() is stricter.
        if (answerStartsWith(answer, "+CREG:") && at::isRegistered(at::secondNumber(answer)))
            return true;
        silent = result == ModemPort::None && answer.empty() ? silent + 1 : 0;
        if (silent == SilentPolls)
            return false;
    }
    return false;
}

bool GsmModule::attachGprs() {
    const MutexGuard held(mutex);
    return succeeds("AT+CGATT=1", AttachMs);
}

bool GsmModule::initGprs(const char* apn) {
    if (!apn || !isQuotable(apn))
        return false;
    const std::string context = "AT+CGDCONT=1,\"IP\",\"" + std::string(apn) + "\",\"0.0.0.0\",0,0";
    const MutexGuard held(mutex);
    const auto accepts = [this](const std::string& command) {
        // Long: the echo of a long name would leave no room for the result.
        return succeedsWithin(command, ContextMs, ContextSends, ContextPauseMs, LongAnswerSize);
    };
    return accepts(context) && accepts("AT+CGQMIN=1,0,0,0,0,0") && accepts("AT+CGQREQ=1,0,0,0,0,0");
}

bool GsmModule::setFrequency(ModuleFreqBand band) {
    if (band < BAND_900_1800 || band > BAND_850_1900)
        return false;
    const MutexGuard held(mutex);
    return succeeds("AT#AUTOBND=1", BandMs) && succeeds("AT#BND=" + std::to_string(band), BandMs);
}

bool GsmModule::readNetworkInfo(GSM_NETWORK_INFO& info) {
    const MutexGuard held(mutex);
    std::string cellAnswer;
    std::string registrationAnswer;
    const bool hasCell =
        exchange("AT#MONI", NetworkInfoMs, &cellAnswer, LongAnswerSize) == ModemPort::Ok;
    if (exchange(AskRegistration, NetworkInfoMs, &registrationAnswer) != ModemPort::Ok)
        return false;
    const std::optional<int> status = at::registrationStatus(registrationAnswer);
    const at::Cell cell = hasCell ? at::servingCell(cellAnswer).value_or(at::Cell()) : at::Cell();
    if (!status || (at::isRegistered(*status) && !cell.power))
        return false;
    info.registrationStatus = *status;
    info.operatorName = cell.networkName;
    info.power = cell.power.value_or(GSM_NETWORK_INFO::NoPower);
    info.channel = cell.channel.value_or(-1);
    info.bsic = cell.bsic.value_or(-1);
    info.rxQual = cell.rxQual.value_or(-1);
    return true;
}
