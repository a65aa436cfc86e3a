#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "bluetooth/BluetoothModule.h"

namespace bluetooth {

/// A decimal number at the beginning of a text, after white space. 0 without one; what does not fit
/// is the nearest that does.
int numberIn(const std::string& text);

/// The devices in the answer to an inquiry, in the order of their lines. A name belongs to the
/// first device of its address among the lines before it, or to none.
std::vector<BluetoothModule::Device> devicesIn(std::string_view answer);

}  // namespace bluetooth
