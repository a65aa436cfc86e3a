#include <memory>

#include "Scanning.h"

namespace ctl {

void declareScan(Choice& choice, CLI::App& command) {
    const auto order = std::make_shared<ScanOrder>();
    const auto engine = std::make_shared<std::string>("any");
    command.add_option("--engine", *engine, "any that is fitted, or one")
        ->check(CLI::IsMember({"barcode", "rfid", "any"}));
    declareScanning(command, *order);
    choice.offer(command, [order, engine](Output& output) {
        order->barcodes = *engine != "rfid";
        order->tags = *engine != "barcode";
        return scan(*order, output);
    });
}

}  // namespace ctl
