#pragma once

namespace sim {

/// The definition of a call that comes after the simulator's own, in the end libc's. Ends the
/// program when there is none: then nothing could be passed on.
void* nextDefinition(const char* name);

}  // namespace sim

/// The real call behind an interposed one. The simulator's own code uses these throughout, so that
/// it neither meets itself nor waits in simulated time.
#define SIM_REAL(name)                                                         \
    ([] {                                                                      \
        static const auto nextCall =                                           \
            reinterpret_cast<decltype(&::name)>(::sim::nextDefinition(#name)); \
        return nextCall;                                                       \
    }())
