// The command channel, and what concerns the module itself.

#include "gsm/GsmModule.h"

#include <cstring>
#include <memory>

#include "foundation/Thread.h"
#include "gsm/AtAnswer.h"

namespace {

constexpr unsigned long Baud = 115200;
constexpr int PauseMs = 20;  // keeps commands from following each other back to back

constexpr int Probes = 5;
constexpr int ProbeMs = 200;
constexpr int SetUpMs = 500;
constexpr int PowerModeMs = 5000;
constexpr int VersionMs = 500;

}  // namespace

GsmModule::GsmModule(const char* device) : devicePath(device ? device : "") {}

GsmModule::~GsmModule() {
    if (port)
        close();
}

bool GsmModule::open() {
    if (port)
        return false;
    const MutexGuard held(mutex);
    if (port)
        return false;  // another thread has been faster
    auto opened = std::make_unique<ModemPort>();
    if (!opened->open(devicePath.c_str()))
        return false;
    opened->setSpeed(Baud);
    opened->setFlowControl(S_FLOW_NONE);
    opened->setCharBits(8);
    opened->setStopBits(1);
    opened->setParity(S_PARITY_NONE);
    port = opened.release();
    return true;
}

bool GsmModule::close() {
    const MutexGuard held(mutex);
    const std::unique_ptr<ModemPort> closing(port.exchange(nullptr));
    if (closing)
        closing->close();
    return true;
}

bool GsmModule::writeCommand(const char* command) {
    ModemPort* const line = port;
    if (!line || !command)
        return false;
    Thread::sleep(PauseMs);
    line->flushInput();
    line->flushOutput();
    const int sent = line->write(command);
    return sent + line->write("\r") == static_cast<int>(std::strlen(command)) + 1;
}

int GsmModule::readAnswer(std::string* answer, int timeoutMs) {
    return collect(answer, AnswerSize, timeoutMs);
}

int GsmModule::readAnswer(int timeoutMs) { return readAnswer(nullptr, timeoutMs); }

int GsmModule::collect(std::string* answer, unsigned size, int timeoutMs) {
    ModemPort* const line = port;
    if (!line)
        return ModemPort::None;
    char buffer[LongAnswerSize + 1] = {};
    const int length = line->read(buffer, size, timeoutMs);
    const void* const echoEnd = std::memchr(buffer, '\r', static_cast<size_t>(length));
    if (!echoEnd)
        return ModemPort::None;
    if (answer) {
        const char* const rest = static_cast<const char*>(echoEnd);
        *answer = rest + std::strspn(rest, "\n\r\t ");
    }
    return line->lastAnswer;
}

bool GsmModule::answerStartsWith(std::string& answer, const char* prefix) {
    return answer.compare(0, std::strlen(prefix), prefix) == 0;
}

/// One command and its answer.
int GsmModule::exchange(const std::string& command, int timeoutMs, std::string* answer,
                        unsigned size) {
    return writeCommand(command.c_str()) ? collect(answer, size, timeoutMs)
                                         : static_cast<int>(ModemPort::None);
}

bool GsmModule::succeeds(const std::string& command, int timeoutMs) {
    return exchange(command, timeoutMs) == ModemPort::Ok;
}

/// Sends the command until it succeeds, up to `sends` times with pauses in between.
bool GsmModule::succeedsWithin(const std::string& command, int timeoutMs, int sends, int pauseMs,
                               unsigned size) {
    for (int sent = 1; exchange(command, timeoutMs, nullptr, size) != ModemPort::Ok; ++sent) {
        if (sent == sends || !port)
            return false;
        Thread::sleep(pauseMs);
    }
    return true;
}

bool GsmModule::initComm() {
    const MutexGuard held(mutex);
    if (!port)
        return false;
    // The probing gives the module time to wake up and to find its line speed, no more.
    succeedsWithin("AT", ProbeMs, Probes, ProbeMs);
    if (!succeeds("AT+CMEE=1", SetUpMs) || !succeeds("AT+IPR=" + std::to_string(Baud), SetUpMs))
        return false;
    const bool isFlowControlled = succeeds("AT&K3", SetUpMs);
    port.load()->setFlowControl(S_FLOW_HARDWARE);
    if (!isFlowControlled) {
        Thread::sleep(SetUpMs);
        if (!succeeds("AT&K3", SetUpMs))
            return false;
    }
    return succeeds("AT#SELINT=2", SetUpMs);
}

bool GsmModule::powerSaveMode(ModulePowerMode mode) {
    if (mode < POWER_MODE_MINIMUM || mode > POWER_MODE_LAST)
        return false;
    const MutexGuard held(mutex);
    return succeeds("AT+CFUN=" + std::to_string(mode), PowerModeMs);
}

std::string GsmModule::getVersion() {
    const MutexGuard held(mutex);
    std::string answer;
    if (version.empty() && exchange("AT+CGMR", VersionMs, &answer) == ModemPort::Ok)
        version = at::firstLine(answer);
    return version;
}
