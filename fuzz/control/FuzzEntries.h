// FuzzEntries.h - the bodies of the device-control fuzz targets, in a library
// so that the unit tests replay the seed corpora through exactly the same code.
#pragma once

#include <cstddef>
#include <cstdint>

namespace control_fuzz {

// The camera's answer to ptz.cgi?query=position.
int FuzzPtzPosition(const uint8_t* data, size_t size);
// The platform's NTP parameter document of configuration command 24.
int FuzzNtpParams(const uint8_t* data, size_t size);
// The platform's ability request document.
int FuzzAbilityRequest(const uint8_t* data, size_t size);

}  // namespace control_fuzz
