// Router.h - which endpoint answers a path, and which paths need credentials.
#pragma once

#include <string_view>

#include "endpoints/Endpoint.h"

namespace camsim {

// The endpoint for an exact path; nullptr when the camera has none (404).
EndpointHandler FindEndpoint(std::string_view path);

// Every VAPIX path (/axis-cgi/..., /vapix/...) is behind Digest authentication,
// known or not, as on the cameras.
bool NeedsAuthentication(std::string_view path);

}  // namespace camsim
