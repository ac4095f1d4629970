// LoopbackAddress.h - gives each simulated camera of a test its own loopback
// address, so tests never depend on fixed host ports and can run in parallel.
#pragma once

#include <cstdint>
#include <string>

namespace netcam_test {

// A random address in 127.16.0.0 - 127.254.255.254 on which `port` (554 for
// RTSP, or 0 for "any") could be bound just now. Linux routes all of 127/8
// to the loopback interface, so no set-up is needed.
std::string UniqueLoopbackAddress(uint16_t port = 0);

// True when this process may bind ports below 1024 (root, or a private
// network namespace).
bool CanBindPrivilegedPorts();

}  // namespace netcam_test
