// The device object's alarm subscription: its address in the event centre's
// table and the platform's alarm callback.
#include "events/axis_device_event_for_http_mgr.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

int32_t CPlgDeviceObjectImplement::SetEventCallBack(PluginAlarmCallback callback, void* user) {
  const bool subscribe = callback != nullptr;
  // The table changes first: once unsubscribing returns, no alarm is being
  // delivered to us, so clearing the callback below cannot race a call.
  if (!CEventForHttpMgr::Instance().SetSubEventDev(this, subscribe)) {
    PLG_ERROR("[%s]SetSubEventDev failed, subscribe[%d], device-ptr[%p].[%s(%d)]", subscribe ? 1 : 0,
              static_cast<void*>(this));
    return NETCAM_FAIL;
  }
  {
    std::lock_guard<std::mutex> lock(m_alarmLock);
    m_pfnAlarmCB = callback;
    m_pAlarmUser = user;
  }
  PLG_INFO("[%s]SetSubEventDev success, subscribe[%d], device-ptr[%p].[%s(%d)]", subscribe ? 1 : 0,
           static_cast<void*>(this));
  return NETCAM_OK;
}

int32_t CPlgDeviceObjectImplement::InvokeEvent(uint32_t type, uint32_t value, const void* record, intptr_t extra) {
  PluginAlarmCallback callback = nullptr;
  void* user = nullptr;
  {
    std::lock_guard<std::mutex> lock(m_alarmLock);
    callback = m_pfnAlarmCB;
    user = m_pAlarmUser;
  }
  if (callback != nullptr) callback(this, type, value, record, extra, user);
  return NETCAM_OK;
}
