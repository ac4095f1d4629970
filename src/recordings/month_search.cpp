// The month view: on which days of a month the camera holds recordings, as the
// platform's calendar asks for it through the JSON command channel.
#include <cstdio>
#include <ctime>

#include "RapidJsonProto.h"
#include "TimeUtil.h"
#include "recordings/RecordingList.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

struct RequestTime {
  int year, month, day, hour, minute, second;
};

RequestTime ReadRequestTime(const Tarn::Proto::IProto& request, const std::string& base) {
  auto field = [&](const char* name) { return static_cast<int>(request.GetInt(base + name, -1)); };
  return RequestTime{field("/year"), field("/month"), field("/day"), field("/hour"), field("/min"), field("/sec")};
}

// Written as the request gave it: the camera's window is the calendar page, not the month.
std::string FormatRequestTime(const RequestTime& time) {
  char text[96] = {};
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.000Z", time.year, time.month, time.day, time.hour,
                time.minute, time.second);
  return text;
}

}  // namespace

int32_t CPlgDeviceObjectImplement::SearchRecordByMonth(const std::shared_ptr<Tarn::Proto::IProto>& request,
                                                       std::shared_ptr<Tarn::Proto::IProto>& response) {
  if (request == nullptr) {
    PLG_ERROR("[%s]NetcamPlugin: CRapidJsonProto == NULL[%s(%d)]");
    return NETCAM_FAIL;
  }
  if (response == nullptr) response = std::make_shared<Tarn::Proto::CRapidJsonProto>();
  const RequestTime start = ReadRequestTime(*request, "/params/utc/start");
  const RequestTime end = ReadRequestTime(*request, "/params/utc/end");
  const recordings::TargetMonth target =
      recordings::ChooseTargetMonth(start.year, start.month, start.day, end.year, end.month);
  if (target.moreThanOneMonth) PLG_WARN("[%s]end_month - start_month > 1[%s(%d)]");

  const std::string startText = FormatRequestTime(start);
  const std::string endText = FormatRequestTime(end);
  const std::string ip = Ip();
  PLG_TRACE("[%s]SearchRecordByMonth Device[%s:%d] Month[%d][%s(%d)]", ip.c_str(),
            static_cast<int>(m_stLoginParam.port), target.month);
  const std::string url = "http://" + ip + ":" + std::to_string(m_stLoginParam.port) +
                          "/axis-cgi/record/list.cgi?recordingid=all&starttime=" + startText + "&stoptime=" + endText;
  std::string answer;
  if (!SendHttpGetReqWithRsp(answer, url, User(), Password())) {
    PLG_ERROR("[%s]SendHttpPostReqWithRsp failed[%s(%d)]");
    return NETCAM_FAIL;
  }
  PLG_TRACE("[%s]Get recording info success, url[%s], recording-data[%s].[%s(%d)]", url.c_str(), answer.c_str());

  const std::string now = Tarn::Base::TimeUtil::TimeT2StrUTCDatetime(static_cast<int64_t>(std::time(nullptr)));
  std::vector<RecordingInfo> list;
  switch (recordings::ParseRecordingList(answer, endText, now, list)) {
    case recordings::ListParse::kNoRoot:
      PLG_ERROR("[%s]No corresponding node data was parsed(root), data[%s].[%s(%d)]", answer.c_str());
      return NETCAM_OK;
    case recordings::ListParse::kNoRecordings:
      PLG_WARN("[%s]No corresponding node data was parsed(recordings), data[%s].[%s(%d)]", answer.c_str());
      return NETCAM_OK;
    case recordings::ListParse::kOk:
      break;
  }
  recordings::DayMarks marks{};
  recordings::MarkRecordingDays(list, target, marks);
  response->SetString("/result", recordings::FormatDayMarks(marks));
  return NETCAM_OK;
}
