#include "session/axis_device_object_implement.h"

#include "events/axis_device_event_for_http_mgr.h"
#include "session/PluginLog.h"

CPlgDeviceObjectImplement::CPlgDeviceObjectImplement() = default;

CPlgDeviceObjectImplement::~CPlgDeviceObjectImplement() {
  // Out of the alarm table first, and wait for an alarm being delivered to us.
  CEventForHttpMgr::Instance().ForgetDevice(this);
  // Nothing may reach the platform once destruction has begun; the user
  // value is dropped only after the session can no longer call back.
  m_pfnStreamDataCB = nullptr;
  try {
    CloseMediaSession();
  } catch (...) {
    // A destructor reached from the platform must never throw.
  }
  m_nClientId = -1;
  m_pStreamUser = nullptr;
}

int32_t CPlgDeviceObjectImplement::GetVideoParam() {
  PLG_ERROR("[%s]CPlgDeviceObjectImplement GetVideoParam Fail, Not Support[%s(%d)]");
  return NETCAM_NOT_SUPPORTED;
}

int32_t CPlgDeviceObjectImplement::SetVideoParam() {
  PLG_ERROR("[%s]CPlgDeviceObjectImplement SetVideoParam Fail, Not Support[%s(%d)]");
  return NETCAM_NOT_SUPPORTED;
}

int32_t CPlgDeviceObjectImplement::StartVoiceTalk(const PluginTalkRequest* request) {
  PLG_TRACE("[%s]CPlgDeviceObjectImplement StartVoiceTalk, Dev<%s:%d> Chan:%d[%s(%d)]",
            request->address != nullptr ? request->address : "", request->port, request->channel);
  return NETCAM_NOT_SUPPORTED;
}

int32_t CPlgDeviceObjectImplement::StopVoiceTalk() {
  PLG_TRACE("[%s]CPlgDeviceObjectImplement StopVoiceTalk[%s(%d)]");
  return NETCAM_NOT_SUPPORTED;
}
