// The command channel's fuzz body: it needs the whole device object, so it
// lives apart from the pure readers' bodies.
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzEntries.h"
#include "RapidJsonProto.h"
#include "session/axis_device_object_implement.h"

namespace schedule_fuzz {

std::string g_cameraAnswer;

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

int FuzzTransMethod(const uint8_t* data, size_t size) {
  // Not opened. In the fuzzer the camera answers with the command text itself
  // (FuzzTransport.cpp); replayed by the unit tests, its requests fail at once.
  static CPlgDeviceObjectImplement device;
  static std::vector<char> response(1 << 20);
  g_cameraAnswer.assign(reinterpret_cast<const char*>(data), size);
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
