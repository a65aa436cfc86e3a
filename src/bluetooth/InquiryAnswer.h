#pragma once

#include <string_view>
#include <vector>

#include "bluetooth/BluetoothModule.h"

namespace bluetooth {

/// The devices in the answer to an inquiry, in the order of their lines. A name belongs to the
/// first device of its address among the lines before it, or to none.
std::vector<BluetoothModule::Device> devicesIn(std::string_view answer);

}  // namespace bluetooth
