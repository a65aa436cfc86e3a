#include <climits>
#include <memory>

#include "Scanning.h"

namespace ctl {

void declareRfid(Command command) {
    const auto order = std::make_shared<ScanOrder>();
    order->tags = true;
    Command identify = command.add("identify", "shows the identifiers of tags");
    declareScanning(identify, *order);
    identify.act([order](Output& output) {
        order->text = "{id}";
        return scan(*order, output);
    });

    Command read = command.add("read", "shows identifiers and contents of tags");
    read.take("--bank", order->bank, "the tag's memory bank, 0 to 4",
              within(RFID_BANK_0, RFID_BANK_4));
    read.take("--first", order->first, "the first block of it that is read", within(0, INT_MAX));
    read.take("--last", order->last, "the last one", within(0, INT_MAX));
    declareScanning(read, *order);
    read.act([order](Output& output) {
        order->text = "{id} {code}";
        return scan(*order, output);
    });
}

}  // namespace ctl
