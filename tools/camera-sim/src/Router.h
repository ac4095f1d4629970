// Router.h - which endpoint answers a path, and which paths need credentials.
#pragma once

#include <string_view>

#include "endpoints/Endpoint.h"

namespace camsim {

// The endpoint for an exact path; nullptr when the camera has none (404).
EndpointHandler FindEndpoint(std::string_view path);

// Every VAPIX path (/axis-cgi/..., /vapix/...) is behind Digest authentication,
// known or not, as on the cameras; so are the simulator's own control paths.
bool NeedsAuthentication(std::string_view path);

// The simulator's own requests live under /camera-sim/, apart from the camera's.
constexpr std::string_view kAlarmControlPath = "/camera-sim/alarm";
bool IsControlPath(std::string_view path);

}  // namespace camsim
