#include <memory>

#include "Device.h"
#include "Link.h"
#include "network/GprsConnection.h"

namespace ctl {

void declareGprs(Command command) {
    const auto settings = std::make_shared<LinkSettings>(
        command, std::initializer_list<LinkSettings::Known>{
                     {"pin", "of the SIM"},
                     {"apn", "name of the access point"},
                     {"user", "for the access point, if it asks for one"},
                     {"password", "of that user"},
                 });
    const auto times = std::make_shared<LinkTimes>();
    declareTimes(command, *times);
    command.act([settings, times](Output& output) {
        settings->load();
        const Device device;
        GprsConnection connection({settings->text("pin"), 0, settings->text("apn"),
                                   settings->text("user"), settings->text("password")});
        return runLink(connection, *times, output);
    });
}

}  // namespace ctl
