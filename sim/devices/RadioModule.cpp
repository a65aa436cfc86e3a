// The module's commands, its SIM and network, and its data calls.

#include "sim/devices/RadioModule.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace sim {
namespace {

using std::chrono::milliseconds;

constexpr size_t LongestLine = 512;
constexpr char EscapeSequence[] = "+++";
constexpr Nanoseconds EscapeSilence = std::chrono::seconds(1);

}  // namespace

RadioModule::Hook::Hook(RadioModule& owner, std::shared_ptr<ReplyRule> hookRule)
    : module(owner), rule(std::move(hookRule)) {}

RadioModule::Hook& RadioModule::Hook::times(int count) {
    const Lock held(module.mutex);
    rule->timesLeft = count;
    return *this;
}

RadioModule::RadioModule(Journal& eventJournal, SerialLine& moduleLine)
    : journal(eventJournal), serialLine(moduleLine), answerTime(milliseconds(10)),
      bootTime(milliseconds(500)) {
    mux.frameHook = [this](const RadioFrame& frame) {
        if (isRecording)
            recorded.push_back(frame);
        return frameHook && frameHook(frame);
    };
}

RadioModule::Hook RadioModule::onCommand(const std::string& command, Reply reply) {
    const Lock held(mutex);
    auto rule = std::make_shared<ReplyRule>(ReplyRule{command, std::move(reply)});
    rules.push_back(rule);
    return {*this, std::move(rule)};
}

void RadioModule::clearHooks() {
    const Lock held(mutex);
    rules.clear();
    frameHook = nullptr;
}

void RadioModule::setAnswerTime(Nanoseconds time) {
    const Lock held(mutex);
    answerTime = time;
}

void RadioModule::setSilent(bool silent) {
    const Lock held(mutex);
    isSilent = silent;
}

void RadioModule::setSim(RadioSim::State state) {
    const Lock held(mutex);
    commands.setSimState(state);
    announce();
}

void RadioModule::setPin(const std::string& pin, const std::string& puk) {
    const Lock held(mutex);
    commands.sim.pin = pin;
    commands.sim.puk = puk;
}

RadioSim RadioModule::simCard() const {
    const Lock held(mutex);
    return commands.sim;
}

void RadioModule::setCoverage(RadioNetwork::Coverage coverage) {
    const Lock held(mutex);
    commands.setCoverage(coverage);
    if (coverage == RadioNetwork::None || coverage == RadioNetwork::Denied)
        dropCall();
    announce();
}

void RadioModule::setRegistrationTime(Nanoseconds time) {
    const Lock held(mutex);
    commands.network.registrationTime = time;
    announce();
}

void RadioModule::setSignal(int dBm) {
    const Lock held(mutex);
    commands.network.dBm = dBm;
}

int RadioModule::signal() const {
    const Lock held(mutex);
    return commands.network.dBm;
}

int RadioModule::registration() const {
    const Lock held(mutex);
    return commands.registration();
}

bool RadioModule::isAttached() const {
    const Lock held(mutex);
    return commands.isAttached();
}

void RadioModule::onData(DataPeer peer) {
    const Lock held(mutex);
    dataPeer = std::move(peer);
}

void RadioModule::sendData(uint8_t channel, std::string_view bytes) {
    const Lock held(mutex);
    if (isOn() && !isSilent)
        say(channel, bytes);
}

bool RadioModule::isOnline(uint8_t channel) const {
    const Lock held(mutex);
    return channels.at(channel).mode == Channel::Data;
}

void RadioModule::dropCall() {
    const Lock held(mutex);
    for (uint8_t channel = 0; channel < RadioMux::Channels; ++channel) {
        if (hasCall(channel))
            hangUpCall(channel);
    }
}

bool RadioModule::hasCall(uint8_t channel) const {
    return channels[channel].mode == Channel::Data || channels[channel].mode == Channel::Held;
}

void RadioModule::endCall(uint8_t channel) {
    journal.note("radio", "call ended");
    const Nanoseconds busyUntil = channels[channel].busyUntil;
    channels[channel] = {};
    channels[channel].busyUntil = busyUntil;
    if (channel == DataChannel)
        channels[channel].mode = Channel::Either;
}

void RadioModule::hangUpCall(uint8_t channel) {
    endCall(channel);
    say(channel, commands.formatResult("NO CARRIER"));
}

/// Runs unless the module has been restarted or switched off until then. On the line's thread.
void RadioModule::at(Nanoseconds due, std::function<void()> action) {
    const unsigned begun = session;
    serialLine.at(due, [this, begun, action = std::move(action)] {
        const Lock held(mutex);
        if (session == begun && on)
            action();
    });
}

void RadioModule::sayUnasked(const std::string& text, Nanoseconds delay) {
    const Lock held(mutex);
    if (delay > Nanoseconds(0)) {
        later(delay, [this, text] { sayUnasked(text); });
        return;
    }
    if (!on || isSilent)
        return;
    const std::string line = commands.formatLines(text);
    for (uint8_t channel = 0; channel < RadioMux::Channels; ++channel) {
        const bool hears =
            channels[channel].mode == Channel::Commands || channels[channel].mode == Channel::Held;
        if (hears && (channel == PlainLine) != multiplexing)
            say(channel, line);
    }
}

void RadioModule::later(Nanoseconds delay, std::function<void()> action) {
    at(Clock::get().monotonic() + delay, std::move(action));
}

/// Reports what has changed by itself, and looks again when it will do so next.
void RadioModule::announce() {
    if (!on)
        return;
    const int before = commands.registration();
    const std::string lines = commands.takeUnsolicited();
    if (!lines.empty()) {
        journal.note("radio", "registration " + std::to_string(before));
        sayUnasked(lines);
    }
    const Nanoseconds change = commands.nextChange();
    if (change > Nanoseconds(0))
        later(change, [this] { announce(); });
}

void RadioModule::transmit(const std::string& bytes, Nanoseconds delay) {
    serialLine.send(bytes, delay);
}

/// What comes over a line set to another speed than the one it was fixed to is noise.
bool RadioModule::isListening() const {
    const int fixedSpeed = commands.fixedSpeed();
    return on && !goingOff && isSupplied && !isSilent && Clock::get().monotonic() >= readyAt &&
           !(dtrLevel && commands.sleepsWithoutDtr()) &&
           (fixedSpeed == 0 || serialLine.isSetTo(fixedSpeed));
}

void RadioModule::received(std::string_view bytes) {
    const Lock held(mutex);
    if (!isListening())
        return;
    if (multiplexing)
        mux.received(bytes);
    else
        take(PlainLine, bytes);
}

void RadioModule::take(uint8_t channel, std::string_view bytes) {
    Channel& taker = channels[channel];
    if (taker.mode == Channel::Either && taker.pending.empty() && !bytes.empty() &&
        bytes != EscapeSequence && bytes[0] != 'A' && bytes[0] != 'a' && bytes[0] != '\r' &&
        bytes[0] != '\n')
        taker.mode = Channel::Data;
    if (taker.mode == Channel::Data)
        takeData(channel, bytes);
    else
        takeCommands(channel, bytes);
}

void RadioModule::takeData(uint8_t channel, std::string_view bytes) {
    Channel& taker = channels[channel];
    const Nanoseconds now = Clock::get().monotonic();
    if (bytes == EscapeSequence && now - taker.lastData >= EscapeSilence) {
        later(EscapeSilence, [this, channel, now] {
            if (channels[channel].mode != Channel::Data || channels[channel].lastData != now)
                return;
            channels[channel].mode = Channel::Held;
            say(channel, commands.formatResult("OK"));
        });
    }
    taker.lastData = now;
    const std::string terminated = taker.ppp.answerTo(bytes);
    if (!terminated.empty()) {
        say(channel, terminated);
        hangUpCall(channel);
    } else if (dataPeer) {
        dataPeer(channel, bytes);
    } else {
        say(channel, bytes);
    }
}

/// A command line begins with "AT"; what comes before, such as frames that arrive after the
/// multiplexer has ended, is passed over. It ends with a carriage return, and is echoed.
void RadioModule::takeCommands(uint8_t channel, std::string_view bytes) {
    std::string& pending = channels[channel].pending;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const char byte = bytes[i];
        if (pending.empty() && byte != 'A' && byte != 'a')
            continue;
        if (pending.size() == 1 && byte != 'T' && byte != 't') {
            pending.clear();
            continue;
        }
        if (byte == '\b' && pending.size() > 2) {
            pending.pop_back();
        } else if (byte != '\r' && byte != '\n' && pending.size() < LongestLine) {
            pending += byte;
        } else if (byte == '\r') {
            const std::string command = std::exchange(pending, {});
            const bool wasMultiplexing = multiplexing;
            execute(channel, command);
            const bool isOver = multiplexing != wasMultiplexing || !on;
            if (isOver || channels[channel].mode == Channel::Data) {
                bytes.remove_prefix(i + 1);
                if (!isOver && !bytes.empty())
                    take(channel, bytes);
                return;
            }
        }
    }
}

Reply RadioModule::replyTo(const std::string& command) {
    for (const auto& rule : rules) {
        if (rule->takes(command))
            return rule->reply;
    }
    return Reply::normal();
}

void RadioModule::execute(uint8_t channel, const std::string& command) {
    journal.note("radio", command);
    Reply reply = replyTo(command);
    if (commands.isEchoing() && reply.isEchoed && reply.kind != Reply::Kind::Silence)
        say(channel, command + "\r");
    if (reply.kind != Reply::Kind::Normal) {
        answer(channel, reply, answerTime + reply.delay);
        return;
    }
    const RadioCommands::Answer normal = commands.execute(command);
    reply.lines = normal.lines;
    reply.result = normal.result;
    answer(channel, reply, answerTime + normal.delay + reply.delay);
    act(channel, normal);
    announce();
}

/// Says it after the delay, and after what is still to be said on the channel.
void RadioModule::answer(uint8_t channel, const Reply& reply, Nanoseconds delay) {
    std::string text;
    if (reply.kind == Reply::Kind::Raw)
        text = reply.result;
    else if (reply.kind != Reply::Kind::Silence)
        text = commands.formatLines(reply.lines) + commands.formatResult(reply.result);
    text = reply.bend(text);
    const auto speak = [this, channel, text, action = reply.action] {
        if (!isSilent)
            say(channel, text);
        if (action)
            action();
    };
    Channel& speaker = channels[channel];
    const Nanoseconds now = Clock::get().monotonic();
    const Nanoseconds due = std::max(speaker.busyUntil, now + delay);
    if (due <= now) {
        speak();
        return;
    }
    speaker.busyUntil = due;
    at(due, speak);
}

void RadioModule::act(uint8_t channel, const RadioCommands::Answer& normal) {
    switch (normal.effect) {
    case RadioCommands::Effect::None: break;
    case RadioCommands::Effect::Multiplex:
        if (!multiplexing)
            startMultiplexing(normal.longestInformation);
        break;
    case RadioCommands::Effect::GoOnline:
        journal.note("radio", "call begun");
        channels[channel].mode = Channel::Data;
        channels[channel].ppp = {};
        break;
    case RadioCommands::Effect::HangUp:
        for (uint8_t other = 0; other < RadioMux::Channels; ++other) {
            if (hasCall(other) && other == channel)
                endCall(other);
            else if (hasCall(other))
                hangUpCall(other);
        }
        break;
    case RadioCommands::Effect::Restart: later(answerTime, [this] { restart(); }); break;
    case RadioCommands::Effect::PowerOff:
        later(answerTime, [this] { powerDown("power off"); });
        break;
    }
}

void RadioModule::say(uint8_t channel, std::string_view bytes) {
    if (bytes.empty())
        return;
    if (channel == PlainLine)
        serialLine.send(bytes);
    else if (multiplexing)
        mux.sendData(channel, bytes);
}

}  // namespace sim
