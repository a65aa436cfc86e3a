#include "sim/devices/Attribute.h"

#include <utility>

namespace sim {

Attribute::Attribute(const RootFolder& rootFolder, std::string path)
    : files(rootFolder), name(std::move(path)) {}

}  // namespace sim
