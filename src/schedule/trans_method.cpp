// The JSON command channel: the platform's free-form commands, parsed, handed
// to the handler named by "method", and answered as JSON text.
#include <cstring>
#include <string>

#include "RapidJsonProto.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

int32_t CPlgDeviceObjectImplement::TransMethod(const char* request, uint32_t requestLength, char* response,
                                               uint32_t* responseLength) {
  if (request == nullptr || response == nullptr) {
    PLG_ERROR("[%s]NetcamPlugin: request == NULL or response == NULL![%s(%d)]");
    return NETCAM_FAIL;
  }
  std::shared_ptr<Tarn::Proto::IProto> proRequest = std::make_shared<Tarn::Proto::CRapidJsonProto>();
  std::shared_ptr<Tarn::Proto::IProto> proResponse = std::make_shared<Tarn::Proto::CRapidJsonProto>();
  if (!proRequest->set_str(std::string(request, requestLength))) {
    PLG_ERROR("[%s]CRapidJsonProto Set str Failed str.[%s(%d)]");
    return NETCAM_FAIL;
  }
  const std::string method = proRequest->GetString("/method", "");
  int32_t result = NETCAM_NOT_SUPPORTED;
  if (method == "SearchCameraRecordByMonth") {
    result = SearchRecordByMonth(proRequest, proResponse);
  } else if (method == "ProfileList") {
    result = GetProfile(proRequest, proResponse);
  } else if (method == "SetProfile") {
    result = SetProfile(proRequest, proResponse);
  }
  // The platform sizes the buffer; its capacity is not passed in.
  const std::string text = proResponse->get_str();
  std::memcpy(response, text.c_str(), text.size() + 1);
  if (responseLength != nullptr) *responseLength = static_cast<uint32_t>(text.size());
  return result;
}
