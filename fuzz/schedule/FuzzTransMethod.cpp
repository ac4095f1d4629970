// The command channel's fuzz body: it needs the whole device object, so it
// lives apart from the pure readers' bodies.
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzEntries.h"
#include "RapidJsonProto.h"
#include "session/axis_device_object_implement.h"

namespace schedule_fuzz {

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

int FuzzTransMethod(const uint8_t* data, size_t size) {
  // Not opened: the camera requests fail at once, so only the command text is exercised.
  static CPlgDeviceObjectImplement device;
  std::vector<char> response(1 << 20, '\0');
  uint32_t length = 0;
  const int32_t result =
      device.TransMethod(reinterpret_cast<const char*>(data), static_cast<uint32_t>(size), response.data(), &length);
  Require(result >= -2 && result <= 1);
  if (result != -1 || length != 0) {
    Tarn::Proto::CRapidJsonProto answer;
    Require(answer.set_str(std::string(response.data(), length)));
  }
  return 0;
}

}  // namespace schedule_fuzz
