// Playback of the camera's recordings: the end-of-file check on the stream
// times the repackager reports, and pause, resume and speed of a running session.
#include <cstring>

#include "session/PluginLog.h"
#include "session/TimeConversions.h"
#include "session/axis_device_object_implement.h"

void CPlgDeviceObjectImplement::CheckFileEnd(CPlgDeviceObjectImplement* pStream, const PluginGlobalTime* pGlobalTime) {
  if (pGlobalTime == nullptr) {
    PLG_WARN("[%s]pGlobalTime is null.[%s(%d)]");
    return;
  }
  if (pStream == nullptr || !pStream->m_bPlayback || pStream->m_stPlaybackEndTime.year == 0) return;
  const std::string globalTime = QLSystemTimeToString(pGlobalTime);
  const std::string endTime = QLSystemTimeToString(&pStream->m_stPlaybackEndTime);
  // Plain text comparison; the same second is not past the end.
  if (globalTime > endTime) {
    pStream->DeliverEndBlock();
    PLG_INFO("[%s]Send stream data callback[PLUGIN_STREAM_END], str_global_time[%s], str_global_end_time[%s].[%s(%d)]",
             globalTime.c_str(), endTime.c_str());
  }
}

int32_t CPlgDeviceObjectImplement::PauseStream() {
  kor::CGuard guard(m_streamLock);
  PLG_INFO("[%s]PauseStream Start, clientid[%d], url[%s].[%s(%d)]", m_nClientId.load(), m_strStreamUrl.c_str());
  if (m_nPaused == 1) return NETCAM_OK;
  if (m_nClientId < 0) {
    PLG_ERROR("[%s]PauseStream failed, clientid[%d].[%s(%d)]", m_nClientId.load());
    return NETCAM_FAIL;
  }
  if (!ChangeSessionStatus(MDC_STATUS_PAUSE, 0.0)) return NETCAM_FAIL;
  m_nPaused = 1;
  PLG_INFO("[%s]PauseStream success, clientid[%d], url[%s].[%s(%d)]", m_nClientId.load(), m_strStreamUrl.c_str());
  return NETCAM_OK;
}

int32_t CPlgDeviceObjectImplement::ResumeStream() {
  kor::CGuard guard(m_streamLock);
  PLG_INFO("[%s]ResumeStream Start, clientid[%d], url[%s].[%s(%d)]", m_nClientId.load(), m_strStreamUrl.c_str());
  if (m_nPaused != 1) {
    PLG_INFO("[%s]No pause No need to resume playback, clientid[%d], url[%s].[%s(%d)]", m_nClientId.load(),
             m_strStreamUrl.c_str());
    return NETCAM_OK;
  }
  if (m_nClientId < 0) {
    PLG_ERROR("[%s]ResumeStream failed, clientid[%d].[%s(%d)]", m_nClientId.load());
    return NETCAM_FAIL;
  }
  if (!ChangeSessionStatus(MDC_STATUS_RESUME, 0.0)) return NETCAM_FAIL;
  m_nPaused = 0;
  PLG_INFO("[%s]ResumeStream success, clientid[%d], url[%s].[%s(%d)]", m_nClientId.load(), m_strStreamUrl.c_str());
  return NETCAM_OK;
}

int32_t CPlgDeviceObjectImplement::SetStreamScale(double fScale) {
  kor::CGuard guard(m_streamLock);
  PLG_INFO("[%s]SetStreamScale Start, clientid[%d], fScale[%.4f], url[%s].[%s(%d)]", m_nClientId.load(), fScale,
           m_strStreamUrl.c_str());
  if (static_cast<int64_t>(m_dScale * 10000.0) == static_cast<int64_t>(fScale * 10000.0)) {
    PLG_INFO("[%s]The speed is consistent, no need to set, clientid[%d], fScale[%.4f], url[%s].[%s(%d)]",
             m_nClientId.load(), fScale, m_strStreamUrl.c_str());
    return NETCAM_OK;
  }
  if (m_nClientId < 0) {
    PLG_ERROR("[%s]SetStreamScale failed, clientid[%d].[%s(%d)]", m_nClientId.load());
    return NETCAM_FAIL;
  }
  // The speed is kept for the session but not sent: the camera plays recordings
  // at their own pace, and a speed change releases a paused stream.
  m_dScale = fScale;
  m_nPaused = 0;
  PLG_INFO("[%s]SetStreamScale success, clientid[%d], fScale[%.4f], url[%s].[%s(%d)]", m_nClientId.load(), fScale,
           m_strStreamUrl.c_str());
  return NETCAM_OK;
}

bool CPlgDeviceObjectImplement::ChangeSessionStatus(int32_t kind, double speed) {
  MDC_StatusChange status;
  std::memset(&status, 0, sizeof status);
  status.kind = kind;
  status.speed = speed;
  const int32_t result = MDC_ChangeStatus(m_nClientId, &status);
  if (result != 0) {
    PLG_ERROR("[%s]MDC_ChangeStatus failed, err[0x%x], clientid[%d], url[%s].[%s(%d)]", static_cast<unsigned>(result),
              m_nClientId.load(), m_strStreamUrl.c_str());
    return false;
  }
  return true;
}
