#include "Commands.h"
#include "config/SysInfo.h"
#include "io/Media.h"

namespace ctl {
namespace {

/// By Media::State, from Unknown on.
const char* const CardStates[] = {nullptr, "not mounted", "read-only", "read-write"};

/// What is missing is empty.
Value known(const char* text) { return text && *text ? Value(text) : Value(); }

const char* cardState() {
    return CardStates[Media::getMediaState(Media::mountTable[0]) - Media::Unknown];
}

Status showInfo(Output& output) {
    const uint32_t made = SysInfo::getManufTimeStamp();
    output.show("serial number: {serial}\nmodel: {model}\nhardware: {hardware}\n"
                "firmware: {firmware}\ncommunication module: {module}\nmade: {made}\n"
                "scanners: {scanners}\nmemory card: {card}",
                {{"serial", known(SysInfo::getSerialNumber())},
                 {"model", known(SysInfo::getModelType())},
                 {"hardware", known(SysInfo::getHardwareRevision())},
                 {"firmware", known(SysInfo::getFirmwareVersion())},
                 {"module", SysInfo::getCommModule()},
                 {"made", made == 0 ? Value() : Value(made)},
                 {"scanners", known(SysInfo::getScannerInformation())},
                 {"card", known(cardState())}});
    return Done;
}

}  // namespace

void declareInfo(Command command) { command.act(showInfo); }

}  // namespace ctl
