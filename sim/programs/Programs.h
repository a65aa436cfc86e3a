#pragma once

#include "sim/programs/Door.h"

namespace program {

// The programs that are more than a question to the terminal. Each gets its whole command line, and
// the result is its exit status.

int pppd(Door& door, int argc, char** argv);
int udhcpc(Door& door, int argc, char** argv);
int wpaSupplicant(Door& door, int argc, char** argv);

/// Waits until SIGTERM or SIGINT comes, the door's terminal has gone (both: false), a descriptor is
/// readable, or the time has passed; negative: for ever.
bool waitUnlessEnded(const Door& door, int descriptor, int timeoutMs);

/// From here on the signals end only what waits, see above.
void holdEndingSignals();

/// Whether one of them has come. From then on waits go on until the next.
bool takeEndingSignal();

}  // namespace program
