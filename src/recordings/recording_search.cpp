// Recordings on the camera's own storage: the list for a time window, the
// find/next/close cursor the platform steps through, and the recording status.
#include <ctime>

#include "TimeUtil.h"
#include "recordings/RecordingList.h"
#include "session/PluginLog.h"
#include "session/TimeConversions.h"
#include "session/axis_device_object_implement.h"

namespace {

// The recording status looks this far back and ahead of the present.
constexpr int64_t kStatusWindowSeconds = 86400;

std::string NowUtcText() {
  return Tarn::Base::TimeUtil::TimeT2StrUTCDatetime(static_cast<int64_t>(std::time(nullptr)));
}

}  // namespace

bool CPlgDeviceObjectImplement::AnalysisRecordingFile(std::vector<RecordingInfo>& list, const std::string& responseText,
                                                      const std::string& stopText) {
  switch (recordings::ParseRecordingList(responseText, stopText, NowUtcText(), list)) {
    case recordings::ListParse::kNoRoot:
      PLG_ERROR("[%s]No corresponding node data was parsed(root), data[%s].[%s(%d)]", responseText.c_str());
      return false;
    case recordings::ListParse::kNoRecordings:
      PLG_WARN("[%s]No corresponding node data was parsed(recordings), data[%s].[%s(%d)]", responseText.c_str());
      return false;
    case recordings::ListParse::kOk:
      break;
  }
  return true;
}

bool CPlgDeviceObjectImplement::GetRecordingList(std::vector<RecordingInfo>& list, const std::string& address, int port,
                                                 const std::string& startText, const std::string& stopText,
                                                 const std::string& user, const std::string& password) {
  const std::string url = "http://" + address + ":" + std::to_string(port) +
                          "/axis-cgi/record/list.cgi?recordingid=all&starttime=" + startText + "&stoptime=" + stopText;
  std::string response;
  if (!SendHttpGetReqWithRsp(response, url, user, password)) {
    PLG_ERROR("[%s]GetRecordingList failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return false;
  }
  if (!AnalysisRecordingFile(list, response, stopText)) {
    PLG_ERROR("[%s]AnalysisRecordingFile failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return false;
  }
  PLG_INFO("[%s]Get recording info success, url[%s], recording-data[%s].[%s(%d)]", url.c_str(), response.c_str());
  return true;
}

int32_t CPlgDeviceObjectImplement::FindRecordFiles(const RecordSearchCondition* pstFindRecordPara) {
  kor::CGuard guard(m_searchLock);
  if (pstFindRecordPara == nullptr) {
    PLG_ERROR("[%s]QelPlugin: FindRecordFiles Fail, pstFindRecordPara == NULL![%s(%d)]");
    return NETCAM_FAIL;
  }
  const std::string startText = PluginTimeToUTCStringNoCheck(&pstFindRecordPara->start);
  const std::string stopText = PluginTimeToUTCStringNoCheck(&pstFindRecordPara->end);
  // Started before the request: after a failed search the cursor answers
  // "no more files" rather than "call find first".
  m_nSearchCursor = 0;
  m_vecRecordings.clear();
  m_bSearchStarted = true;
  if (!GetRecordingList(m_vecRecordings, Ip(), m_stLoginParam.port, startText, stopText, User(), Password())) {
    PLG_ERROR("[%s]GetRecordingList failed.[%s(%d)]");
    return NETCAM_FAIL;
  }
  return NETCAM_OK;
}

int32_t CPlgDeviceObjectImplement::FindNextRecordFile(RecordFileInfo* pstRecordFileInfo) {
  kor::CGuard guard(m_searchLock);
  if (pstRecordFileInfo == nullptr) {
    PLG_ERROR("[%s]FindNextRecordFile Fail, pstRecordFileInfo == NULL![%s(%d)]");
    return NETCAM_FAIL;
  }
  if (!m_bSearchStarted) {
    PLG_ERROR("[%s]First call the interface FindRecordFiles.[%s(%d)]");
    return NETCAM_FAIL;
  }
  if (m_nSearchCursor >= m_vecRecordings.size()) return NETCAM_FIND_NO_MORE_FILES;
  const RecordingInfo& record = m_vecRecordings[m_nSearchCursor++];
  KOR_Strncpy_s(pstRecordFileInfo->fileName, sizeof pstRecordFileInfo->fileName, record.recordingId.c_str(),
                sizeof pstRecordFileInfo->fileName - 1);
  pstRecordFileInfo->flag = '1';
  pstRecordFileInfo->field516 = 0;
  pstRecordFileInfo->field524 = 0;
  ConvertTimeToPluginTime(record.startTime, &pstRecordFileInfo->start);
  ConvertTimeToPluginTime(record.stopTime, &pstRecordFileInfo->end);
  return NETCAM_FIND_FILE_WRITTEN;
}

int32_t CPlgDeviceObjectImplement::CloseFindRecord() {
  kor::CGuard guard(m_searchLock);
  m_bSearchStarted = false;
  m_vecRecordings.clear();
  m_nSearchCursor = 0;
  return NETCAM_OK;
}

bool CPlgDeviceObjectImplement::GetRecordingStatus(bool* recording) {
  const int64_t now = static_cast<int64_t>(std::time(nullptr));
  const std::string startText = Tarn::Base::TimeUtil::TimeT2StrUTCDatetime(now - kStatusWindowSeconds);
  const std::string stopText = Tarn::Base::TimeUtil::TimeT2StrUTCDatetime(now + kStatusWindowSeconds);
  std::vector<RecordingInfo> list;
  if (!GetRecordingList(list, Ip(), m_stLoginParam.port, startText, stopText, User(), Password())) {
    PLG_ERROR("[%s]GetRecordingList failed.[%s(%d)]");
    return false;
  }
  if (recording == nullptr) return true;
  *recording = false;
  for (const RecordingInfo& record : list) {
    if (record.inProgress) {
      *recording = true;
      break;
    }
  }
  return true;
}
