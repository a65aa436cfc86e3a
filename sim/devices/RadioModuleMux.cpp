// The module while it multiplexes.

#include <utility>

#include "sim/devices/RadioModule.h"

namespace sim {
namespace {

/// Without a channel within this time the module takes commands on the line again.
constexpr Nanoseconds OpeningTime = std::chrono::seconds(10);

}  // namespace

void RadioModule::startMultiplexing(unsigned longestInformation) {
    journal.note("radio", "multiplexing");
    multiplexing = true;
    mux.start(longestInformation);
    for (size_t channel = 1; channel < channels.size(); ++channel)
        channels[channel] = {};
    later(OpeningTime, [this] {
        if (multiplexing && !mux.isOpen(0))
            multiplexingEnded();
    });
}

void RadioModule::multiplexingEnded() {
    journal.note("radio", "multiplexing ended");
    multiplexing = false;
    channels[PlainLine] = {};
}

void RadioModule::channelOpened(uint8_t channel) {
    journal.note("radio", "channel " + std::to_string(channel) + " open");
    channels[channel] = {};
    if (channel == DataChannel)
        channels[channel].mode = Channel::Either;
}

void RadioModule::channelClosed(uint8_t channel) {
    journal.note("radio", "channel " + std::to_string(channel) + " closed");
    channels[channel] = {};
}

void RadioModule::channelData(uint8_t channel, std::string_view bytes) { take(channel, bytes); }

void RadioModule::transmit(std::string_view bytes) {
    if (!isSilent)
        serialLine.send(bytes);
}

void RadioModule::note(const std::string& text) { journal.note("radio", text); }

bool RadioModule::isMultiplexing() const {
    const Lock held(mutex);
    return multiplexing;
}

bool RadioModule::isChannelOpen(uint8_t channel) const {
    const Lock held(mutex);
    return multiplexing && mux.isOpen(channel);
}

void RadioModule::onFrame(std::function<bool(const RadioFrame&)> hook) {
    const Lock held(mutex);
    frameHook = std::move(hook);
}

void RadioModule::recordFrames(bool record) {
    const Lock held(mutex);
    isRecording = record;
    recorded.clear();
}

std::vector<RadioFrame> RadioModule::frames() const {
    const Lock held(mutex);
    return recorded;
}

void RadioModule::refuseChannel(uint8_t channel, bool refused) {
    const Lock held(mutex);
    mux.refuse(channel, refused);
}

void RadioModule::sendFrame(const RadioFrame& frame) {
    const Lock held(mutex);
    mux.sendFrame(frame);
}

void RadioModule::sendMessage(uint8_t type, std::string_view value) {
    const Lock held(mutex);
    mux.sendMessage(type, value);
}

void RadioModule::openChannel(uint8_t channel) {
    const Lock held(mutex);
    mux.open(channel);
}

void RadioModule::closeChannel(uint8_t channel) {
    const Lock held(mutex);
    mux.close(channel);
}

void RadioModule::closeDown() {
    const Lock held(mutex);
    if (multiplexing)
        mux.closeDown();
}

}  // namespace sim
