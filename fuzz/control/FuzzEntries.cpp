#include "FuzzEntries.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "control/ControlText.h"

namespace control_fuzz {

int FuzzPtzPosition(const uint8_t* data, size_t size) {
  const std::string answer(reinterpret_cast<const char*>(data), size);
  float pan = 0, tilt = 0;
  int32_t zoom = 0;
  std::vector<std::string> invalid;
  control::ParsePtzPosition(answer, pan, tilt, zoom, &invalid);
  // The log takes a few bad pieces, never one per piece of a hostile answer.
  if (invalid.size() > 8) std::abort();
  return 0;
}

int FuzzNtpParams(const uint8_t* data, size_t size) {
  control::NtpParams params;
  if (!control::ParseNtpParams(std::string(reinterpret_cast<const char*>(data), size), params)) return 0;
  if (strnlen(params.server, sizeof params.server) == sizeof params.server) std::abort();  // always terminated
  const std::string body = control::SetDevTimeNtpBody(params.server, params.enable == 1);
  if (body.find(params.enable == 1 ? "\"enabled\":true}}" : "\"enabled\":false}}") == std::string::npos) std::abort();
  return 0;
}

int FuzzAbilityRequest(const uint8_t* data, size_t size) {
  std::string command;
  if (control::ParseAbilityCommand(std::string(reinterpret_cast<const char*>(data), size), command) &&
      command.size() > size)
    std::abort();
  return 0;
}

}  // namespace control_fuzz
