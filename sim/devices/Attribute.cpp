#include "sim/devices/Attribute.h"

#include <cstdlib>
#include <utility>

namespace sim {

Attribute::Attribute(const RootFolder& rootFolder, std::string path)
    : files(rootFolder), name(std::move(path)) {}

long Attribute::value() const { return strtol(files.read(name).c_str(), nullptr, 10); }

}  // namespace sim
