#include <memory>

#include "Scanning.h"

namespace ctl {

void declareScan(Command command) {
    const auto order = std::make_shared<ScanOrder>();
    const auto engine = std::make_shared<std::string>("any");
    command.take("--engine", *engine, "any that is fitted, or one",
                 among({"barcode", "rfid", "any"}));
    declareScanning(command, *order);
    command.act([order, engine](Output& output) {
        order->barcodes = *engine != "rfid";
        order->tags = *engine != "barcode";
        return scan(*order, output);
    });
}

}  // namespace ctl
