#include <memory>

#include "Scanning.h"

namespace ctl {

void declareRfid(Choice& choice, CLI::App& command) {
    const auto order = std::make_shared<ScanOrder>();
    order->tags = true;
    CLI::App& identify = commandIn(command, "identify", "shows the identifiers of tags");
    declareScanning(identify, *order);
    choice.offer(identify, [order](Output& output) {
        order->text = "{id}";
        return scan(*order, output);
    });

    CLI::App& read = commandIn(command, "read", "shows identifiers and contents of tags");
    read.add_option("--bank", order->bank, "the tag's memory bank, 0 to 4")
        ->check(CLI::Range(static_cast<int>(RFID_BANK_0), static_cast<int>(RFID_BANK_4)));
    read.add_option("--first", order->first, "the first block of it that is read")
        ->check(CLI::NonNegativeNumber);
    read.add_option("--last", order->last, "the last one")->check(CLI::NonNegativeNumber);
    declareScanning(read, *order);
    choice.offer(read, [order](Output& output) {
        order->text = "{id} {code}";
        return scan(*order, output);
    });
}

}  // namespace ctl
