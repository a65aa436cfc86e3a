// The engine's life: start, suspend and stop, and the worker's course.

#include "gsm/Gsm0710Mux.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

#include "gsm/Gsm0710Buffer.h"
#include "gsm/Gsm0710Protocol.h"
#include "io/NoCancellation.h"
#include "io/SerialClose.h"
#include "power/PowerManager.h"

namespace {

constexpr int StopMs = 10000;
constexpr int PollMs = 1000;
constexpr size_t MaxPath = 32;

constexpr int CommandGapMs = 20;
constexpr int AnswerMs = 200;
constexpr int AnswerLengthMs = 100;
constexpr size_t MaxAnswer = 128;

constexpr int CloseGapMs = 50;
constexpr int CloseDownTries = 5;

PowerManager& power() { return *PowerManager::getPowerManager(); }

constexpr unsigned char asCommand(gsm0710::MessageType type) {
    return type | gsm0710::CommandResponseBit;
}

std::string shortened(const char* path) { return {path, ::strnlen(path, MaxPath)}; }

}  // namespace

Gsm0710Mux::~Gsm0710Mux() {
    const io::NoCancellation scope;
    if (physicalFd.isOpen())
        stopMux();
}

bool Gsm0710Mux::startMux(const char* physicalPath, const char** virtualPaths) {
    if (physicalFd.isOpen() || !openPhysicalPort(physicalPath))
        return false;
    physicalName = shortened(physicalPath);
    channelCount = 0;
    while (channelCount < MaxVirtualPorts && virtualPaths && virtualPaths[channelCount]) {
        virtualNames[channelCount] = shortened(virtualPaths[channelCount]);
        ++channelCount;
    }
    // Before the power manager knows of us: a wake-up that came in between would start the worker,
    // and both would open them.
    openVirtualPorts();
    power().addListener(this);
    start();
    return true;
}

bool Gsm0710Mux::stopMux() {
    power().removeListener(this);
    stop(StopMs, true);
    closeVirtualPorts();  // the worker has done so, unless it never came as far or was cancelled
    channelCount = 0;
    if (!physicalFd.isOpen())
        return true;
    io::prepareSerialClose(physicalFd.get());
    physicalFd.reset();
    return true;
}

bool Gsm0710Mux::powerStateChange(PowerState from, PowerState to) {
    if (to == POWER_SUSPEND) {
        stop(StopMs, true);
        power().gprsSetDTR(false);
    } else if (from == POWER_SUSPEND) {
        power().gprsSetDTR(true);
        start();
    }
    return true;
}

void Gsm0710Mux::run() {
    resting.reset();
    abandoned.reset();
    unread.reset();
    openVirtualPorts();
    if (!initMux())
        return;

    Gsm0710Buffer buffer;
    StopType stopType = Running;
    while (!stopRequested() && stopType == Running) {
        int fds[MaxDescriptors];
        const int count = getPendingFds(fds, PollMs);
        for (int i = 0; i < count; ++i) {
            if (fds[i] == physicalFd.get())
                handlePhysicalInput(buffer, stopType);
            else
                handleVirtualInput(fds[i]);
        }
    }

    closeVirtualPorts();
    drainOutput();
    if (stopType != ClosedByModule)
        closeMux();
    channelOpen.reset();
}

/// One exchange before the switch to multiplexing.
bool Gsm0710Mux::sendAT(const char* command, int timeoutMs) {
    sleep(CommandGapMs);
    const size_t length = std::strlen(command);
    if (::write(physicalFd.get(), command, length) != static_cast<ssize_t>(length))
        return false;
    tcdrain(physicalFd.get());
    if (!waitFor(physicalFd.get(), POLLIN, timeoutMs))
        return false;
    sleep(AnswerLengthMs);
    char answer[MaxAnswer];
    const ssize_t count = ::read(physicalFd.get(), answer, sizeof answer);
    return count > 0 &&
           std::string_view(answer, static_cast<size_t>(count)).find(gsm0710::PositiveAnswer) !=
               std::string_view::npos;
}

bool Gsm0710Mux::initMux() {
    {
        MutexGuard held(writeMutex);
        output.clear();
    }
    tcflush(physicalFd.get(), TCIFLUSH);  // frames of before a suspend are no answer
    if (!sendAT(gsm0710::ProbeCommand, AnswerMs))
        return false;
    if (!sendAT(gsm0710::MultiplexCommand, AnswerMs)) {
        if (stopRequested())  // which left the answer unread: the module may have switched
            closeMux();
        return false;
    }

    // The answers are handled when they come, like any other frame.
    writeToPhysical(gsm0710::ControlChannel, nullptr, 0, gsm0710::withPollFinal(gsm0710::Sabm));
    for (int channel = 1; channel <= channelCount; ++channel) {
        writeToPhysical(channel, nullptr, 0, gsm0710::withPollFinal(gsm0710::Sabm));
        const unsigned char modemStatus[] = {
            asCommand(gsm0710::ModemStatus), gsm0710::lengthOctet(2),
            gsm0710::addressOctet(channel), gsm0710::ReadyToCommunicate | gsm0710::ReadyToReceive};
        writeToPhysical(gsm0710::ControlChannel, modemStatus, sizeof modemStatus, gsm0710::Uih);
    }
    return true;
}

/// Closes the multiplexer from this side. The highest channel gets no DISC of its own: the module
/// takes the one on channel 0 for all.
void Gsm0710Mux::closeMux() {
    for (int channel = channelCount - 1; channel >= 0; --channel) {
        writeToPhysical(channel, nullptr, 0, gsm0710::withPollFinal(gsm0710::Disc));
        sleep(CloseGapMs);
    }
    const unsigned char closeDown[] = {asCommand(gsm0710::CloseDown), gsm0710::lengthOctet(0)};
    for (int tries = 0; tries < CloseDownTries; ++tries) {
        writeToPhysical(gsm0710::ControlChannel, closeDown, sizeof closeDown, gsm0710::Uih);
        sleep(CloseGapMs);
    }
    drainOutput();
}
