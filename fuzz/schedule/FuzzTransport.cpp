// The command channel fuzzer's camera: the two VAPIX request operations answer
// at once, without a network, with the command text itself, so the readers of
// the camera's answers see fuzzed text as well.
#include "FuzzEntries.h"
#include "session/axis_device_object_implement.h"

bool CPlgDeviceObjectImplement::SendHttpGetReqWithRsp(std::string& out, const std::string&, const std::string&,
                                                      const std::string&) {
  out = schedule_fuzz::g_cameraAnswer;
  return true;
}

bool CPlgDeviceObjectImplement::SendHttpPostReqWithRsp(std::string& out, const std::string&, const std::string&,
                                                       const std::string&, const std::string&, const std::string&) {
  out = schedule_fuzz::g_cameraAnswer;
  return true;
}
