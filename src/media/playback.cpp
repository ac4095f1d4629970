// Playback of the camera's recordings: the earliest recording of the asked
// span played through the live path with the span as the RTSP range, the
// end-of-file check on the stream times the repackager reports, and pause,
// resume and speed of a running session.
#include <algorithm>
#include <cstring>

#include "TimeUtil.h"
#include "session/PluginLog.h"
#include "session/TimeConversions.h"
#include "session/axis_device_object_implement.h"

namespace {

// Play information constants of the media client: an absolute clock range.
constexpr int32_t kPlayInfoKind = 1;
constexpr int32_t kPlayInfoField1 = 1;
constexpr int32_t kPlayInfoField2 = 0;
constexpr int32_t kPlayInfoField4 = 0;
constexpr double kMicrosPerSecond = 1000000.0;

std::string Text(const char* text) { return text != nullptr ? text : ""; }

// The platform's local time as the repackager's stream time: six fields, the rest zero.
void CopyLocalTime(PluginGlobalTime& target, const PluginGlobalTime* local) {
  std::memset(&target, 0, sizeof target);
  if (local == nullptr) return;
  target.year = local->year;
  target.month = local->month;
  target.day = local->day;
  target.hour = local->hour;
  target.minute = local->minute;
  target.second = local->second;
}

// The time utility reads camera texts with a blank between date and time.
std::string WithBlankForT(std::string text) {
  std::replace(text.begin(), text.end(), 'T', ' ');
  return text;
}

}  // namespace

int32_t CPlgDeviceObjectImplement::StartPlayBack(const PluginPlaybackCondition* condition,
                                                 PluginStreamDataCallback pfnDataCB, void* pUser,
                                                 const PluginGlobalTime* startLocal, const PluginGlobalTime* endLocal) {
  kor::CGuard guard(m_streamLock);
  if (condition == nullptr || condition->request == nullptr || pfnDataCB == nullptr) {
    PLG_ERROR("[%s]Input parma error, nullptr == pstDevice || nullptr == pfnDataCB![%s(%d)]");
    return NETCAM_FAIL;
  }
  const PluginStreamRequest& request = *condition->request;
  CloseReplacedSession();
  m_bPlayback = true;
  m_nPaused = 0;
  m_dScale = 1.0;
  m_pfnStreamDataCB = pfnDataCB;
  m_pStreamUser = pUser;
  m_strPlaybackStartUtc = PluginTimeToUTCString(condition->utcStart);
  m_strPlaybackEndUtc = PluginTimeToUTCString(condition->utcEnd);

  const std::string address = Text(request.address);
  const std::string user = Text(request.user);
  const std::string password = Text(request.password);
  std::vector<RecordingInfo> list;
  if (!GetRecordingList(list, address, request.port, m_strPlaybackStartUtc, m_strPlaybackEndUtc, user, password)) {
    PLG_ERROR("[%s]GetRecordingList failed.[%s(%d)]");
    return NETCAM_FAIL;
  }
  if (list.empty()) {
    PLG_ERROR("[%s]No record segment found.[%s(%d)]");
    return NETCAM_FAIL;
  }
  // One recording per start: the earliest; its end comes from the camera or the end check.
  const std::string& recordingId = list.front().recordingId;
  const std::string sessionUrl =
      "rtsp://" + user + ":" + password + "@" + address + ":554/axis-media/media.amp?recordingid=" + recordingId;
  const std::string logUrl = "rtsp://" + address + ":554/axis-media/media.amp?recordingid=" + recordingId;
  CopyLocalTime(m_stPlaybackStartTime, startLocal);
  CopyLocalTime(m_stPlaybackEndTime, endLocal);

  const int32_t clientId = CreateMediaSession(sessionUrl, logUrl);
  if (clientId < 0) return NETCAM_FAIL;

  // The media client takes the range in microseconds since 1970.
  const std::string startEx = WithBlankForT(m_strPlaybackStartUtc);
  const std::string endEx = WithBlankForT(m_strPlaybackEndUtc);
  const double startNpt = static_cast<double>(Tarn::Base::TimeUtil::StrUTCTimeStamp2TimeT(startEx)) * kMicrosPerSecond;
  const double endNpt = static_cast<double>(Tarn::Base::TimeUtil::StrUTCTimeStamp2TimeT(endEx)) * kMicrosPerSecond;
  MDC_PlayInfoV1 info{kPlayInfoKind, kPlayInfoField1, kPlayInfoField2, 1.0f, kPlayInfoField4, startNpt, endNpt};
  const int32_t result = MDC_SetInfoV1(clientId, &info);
  if (result != 0) {
    // Kept as the stream's session so that the platform's stop releases it.
    m_nClientId = clientId;
    m_strStreamUrl = logUrl;
    PLG_ERROR(
        "[%s]MDC_SetInfoV1, err[0x%x], clientid[%d], url[%s], start-time[%s], end-time[%s], start-time-npt[%f], "
        "end-time-npt[%f].[%s(%d)]",
        static_cast<unsigned>(result), clientId, logUrl.c_str(), m_strPlaybackStartUtc.c_str(),
        m_strPlaybackEndUtc.c_str(), startNpt, endNpt);
    return NETCAM_FAIL;
  }
  PLG_INFO(
      "[%s]MDC_SetInfoV1 success, clientid[%d], url[%s], start-time[%s], end-time[%s], str_start_time_ex[%s], "
      "str_end_time_ex[%s], start-time-npt[%f], end-time-npt[%f].[%s(%d)]",
      clientId, logUrl.c_str(), m_strPlaybackStartUtc.c_str(), m_strPlaybackEndUtc.c_str(), startEx.c_str(),
      endEx.c_str(), startNpt, endNpt);
  if (!PlayMediaSession(clientId, logUrl)) return NETCAM_FAIL;
  const PluginGlobalTime& start = m_stPlaybackStartTime;
  PLG_INFO("[%s]StartPlayBack success, clientid[%d], start-time-local[%4d-%02d-%02d %02d:%02d:%02d], url[%s].[%s(%d)]",
           clientId, start.year, start.month, start.day, start.hour, start.minute, start.second, logUrl.c_str());
  return NETCAM_OK;
}

int32_t CPlgDeviceObjectImplement::StopPlayBack() {
  kor::CGuard guard(m_streamLock);
  PLG_INFO("[%s]StopPlayBack begin, clientid[%d], url[%s].[%s(%d)]", m_nClientId.load(), m_strStreamUrl.c_str());
  m_bPlayback = false;
  CloseMediaSession();  // paused first, so nothing in flight reaches the platform
  PLG_INFO("[%s]StopPlayBack end, clientid[%d], url[%s].[%s(%d)]", m_nClientId.load(), m_strStreamUrl.c_str());
  ForgetMediaSession();
  return NETCAM_OK;
}

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
