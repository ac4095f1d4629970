// Stream profiles: the camera's list, and the profile that scheduled recording
// uses (kept on the device object until the next schedule write).
#include <string>

#include "RapidJsonProto.h"
#include "schedule/StreamProfiles.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

constexpr char kListProfilesBody[] =
    "{\"apiVersion\": \"1.0\", \"method\": \"list\", \"params\": {\"streamProfileName\": []}}";

}  // namespace

int32_t CPlgDeviceObjectImplement::GetProfile(const std::shared_ptr<Tarn::Proto::IProto>& request,
                                              std::shared_ptr<Tarn::Proto::IProto>& response) {
  if (request == nullptr) {
    PLG_ERROR("[%s]pro_request is null[%s(%d)]");
    return NETCAM_FAIL;
  }
  if (response == nullptr) response = std::make_shared<Tarn::Proto::CRapidJsonProto>();
  const std::string url = "http://" + GetDeviceAddress() + "/axis-cgi/streamprofile.cgi";
  std::string answer;
  if (!SendHttpPostReqWithRsp(answer, url, kListProfilesBody, User(), Password(), "")) {
    PLG_ERROR("[%s]SendHttpPostReqWithRsp failed, url[%s], req-data[%s] rsp-data[%s].[%s(%d)]", url.c_str(),
              kListProfilesBody, answer.c_str());
    return NETCAM_FAIL;
  }
  PLG_TRACE("[%s]SendHttpPostReqWithRsp, url[%s],req-data[%s] rsp-data[%s].[%s(%d)]", url.c_str(), kListProfilesBody,
            answer.c_str());
  std::vector<StreamProfileEntry> entries;
  if (!schedule::ParseStreamProfiles(answer, entries)) {
    PLG_ERROR("[%s]proto_rsp_data set_str failed[%s(%d)]");
    return NETCAM_FAIL;
  }
  std::string recordProfile;
  if (!GetProfileConfigByActionConfigurations(recordProfile)) {
    PLG_ERROR("[%s]GetProfileConfigByActionConfigurations failed[%s(%d)]");
    recordProfile.clear();
  }
  schedule::WriteProfileList(entries, recordProfile, *response);
  return NETCAM_OK;
}

bool CPlgDeviceObjectImplement::GetProfileConfigByActionConfigurations(std::string& profileName) {
  std::map<int32_t, ActionRuleRecord> rules;
  std::map<int32_t, ActionConfigRecord> configurations;
  if (!GetActionRules(rules)) {
    PLG_ERROR("[%s]GetActionRules failed.[%s(%d)]");
    return false;
  }
  if (!GetActionConfigurations(configurations)) {
    PLG_ERROR("[%s]GetActionConfigurations failed.[%s(%d)]");
    return false;
  }
  profileName.clear();
  for (const auto& [id, rule] : rules) {
    auto configuration = configurations.find(rule.primaryAction);
    if (configuration != configurations.end()) {
      profileName = configuration->second.streamProfile;
      break;
    }
  }
  return true;
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
