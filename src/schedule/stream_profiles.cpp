// Stream profiles: the camera's list, and the profile that scheduled recording
// uses (kept on the device object until the next schedule write).
#include <string>

#include "RapidJsonProto.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

int32_t CPlgDeviceObjectImplement::GetProfile(const std::shared_ptr<Tarn::Proto::IProto>& request,
                                              std::shared_ptr<Tarn::Proto::IProto>& /*response*/) {
  if (request == nullptr) {
    PLG_ERROR("[%s]pro_request is null[%s(%d)]");
    return NETCAM_FAIL;
  }
  return NETCAM_NOT_SUPPORTED;
}

int32_t CPlgDeviceObjectImplement::SetProfile(const std::shared_ptr<Tarn::Proto::IProto>& request,
                                              std::shared_ptr<Tarn::Proto::IProto>& /*response*/) {
  if (request == nullptr) {
    PLG_ERROR("[%s]pro_request is null[%s(%d)]");
    return NETCAM_FAIL;
  }
  kor::CGuard guard(m_streamLock);
  m_strRecordProfileName = request->GetString("/params/ProfileToken", "");
  return 1;
}
