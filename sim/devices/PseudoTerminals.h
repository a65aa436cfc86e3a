#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "sim/Device.h"
#include "sim/RootFolder.h"

namespace sim {

/// The legacy pseudo-terminal pairs: masters "/dev/ptyp0" to "/dev/ptypf" and slaves "/dev/ttyp0"
/// to "/dev/ttypf", each pair given out of the host's pseudo-terminals, so that what passes through
/// it and how it waits is real.
///
/// A master can be open once; opened again after it has been closed it begins a new pair, and a
/// slave of the one before stays hung up. A slave can be opened while its master is open. Both fail
/// with EIO otherwise. While a master is open, programs find its slave below the root folder.
class PseudoTerminals {
public:
    static constexpr int Pairs = 16;

    explicit PseudoTerminals(const RootFolder& files);

    void addTo(std::unordered_map<std::string, std::shared_ptr<Device>>& nodes) const;

private:
    std::unordered_map<std::string, std::shared_ptr<Device>> devices;  // by path
};

}  // namespace sim
