#pragma once

namespace sim {

/// Whether a request is about a network interface, named at the beginning of its record, or about
/// routes: the host's are not the terminal's.
bool isInterfaceRequest(unsigned long request);

/// Carries it out on the terminal's interfaces. As ioctl().
int interfaceRequest(int fd, unsigned long request, void* record);

}  // namespace sim
