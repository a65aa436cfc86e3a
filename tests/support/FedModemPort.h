#pragma once

#include "io/ModemPort.h"
#include "tests/support/FedPort.h"

namespace test {

using FedModemPort = FedPort<ModemPort>;

}  // namespace test
