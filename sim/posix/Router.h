#pragma once

#include <string>

#include "sim/Terminal.h"

namespace sim {

/// Whose a path is, for the interposed calls.
struct Route {
    enum Kind {
        Host,    ///< does not concern the terminal: pass the call on as it is
        File,    ///< a file of the terminal, at `place.hostPath`
        Node,    ///< a device node, `place.device`
        Nothing  ///< the call fails with `place.error`
    };
    Kind kind = Host;
    std::string path;  ///< absolute, as the terminal sees it; for kinds other than Host
    Place place;
};

/// Routes a path given to a call. Relative paths count from the open `folder`, or from the working
/// directory with AT_FDCWD; a null or empty path is the host's to refuse. Faults asked for `call`
/// are answered here.
Route route(const char* call, int folder, const char* path, bool forWriting);

/// Whether an open with these flags changes anything.
bool opensForWriting(int flags);

/// The error that a fault rule has for this call, or 0. For calls that are not about a path.
int faultOf(const char* call, const std::string& path = {});

/// True, with errno set, when a fault rule makes the call fail.
bool failsByFault(const char* call, const std::string& path = {});

}  // namespace sim
