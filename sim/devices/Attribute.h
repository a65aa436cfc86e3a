#pragma once

#include <string>

#include "sim/RootFolder.h"

namespace sim {

/// A sysfs attribute: a number or text in a file of the terminal.
class Attribute {
public:
    Attribute(const RootFolder& rootFolder, std::string path);

    const std::string& path() const { return name; }
    void set(long value) const { setText(std::to_string(value) + "\n"); }
    void setText(const std::string& text) const { files.write(name, text); }
    long value() const;  ///< 0 when it is not a number or not there
    void remove() const { files.remove(name); }

private:
    const RootFolder& files;
    const std::string name;
};

}  // namespace sim
