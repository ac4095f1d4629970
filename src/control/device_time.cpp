// The camera's clock and its NTP client: the date CGI for the clock, the NTP
// JSON API for the client's settings.
#include <cstring>

#include "control/ControlText.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

// The camera's NTP client takes no other port.
constexpr int32_t kNtpPort = 123;
constexpr char kNtpPath[] = "/axis-cgi/ntp.cgi";

}  // namespace

int32_t CPlgDeviceObjectImplement::SetDevTime(const NET_DEV_TIME* time) {
  if (time == nullptr) {
    PLG_ERROR("[%s]NetcamPlugin: Param is null[%s(%d)]");
    return NETCAM_FAIL;
  }
  const std::string url = control::DateSetUrl(GetDeviceAddress(), *time);
  std::string response;
  if (!SendHttpGetReqWithRsp(response, url, User(), Password())) {
    PLG_ERROR("[%s]SetDevTime failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return NETCAM_FAIL;
  }
  return NETCAM_OK;
}

int32_t CPlgDeviceObjectImplement::SetDevTimeNTP(const char* document, uint32_t length) {
  if (document == nullptr) return NETCAM_FAIL;
  // The platform's text need not be terminated within its length.
  const size_t size = length > 0 ? strnlen(document, length) : std::strlen(document);
  control::NtpParams params;
  if (!control::ParseNtpParams(std::string(document, size), params)) return NETCAM_FAIL;
  const std::string url = "http://" + GetDeviceAddress() + kNtpPath;
  const std::string body = control::SetDevTimeNtpBody(params.server, params.enable == 1);
  std::string response;
  // Once the document is understood the platform is told so, whatever the camera said.
  if (!SendHttpPostReqWithRsp(response, url, body, User(), Password(), "application/json; charset=utf-8")) {
    PLG_ERROR("[%s]SetDevTimeNTP failed, url[%s], device-ntp-info[%s], rsp[%s].[%s(%d)]", url.c_str(), body.c_str(),
              response.c_str());
    return NETCAM_OK;
  }
  PLG_INFO("[%s]Set device ntp success, url[%s], device-ntp-info[%s], rsp[%s].[%s(%d)]", url.c_str(), body.c_str(),
           response.c_str());
  return NETCAM_OK;
}

int32_t CPlgDeviceObjectImplement::SetNtpCfg(const DeviceNtpConfig* config) {
  const std::string server = control::TrimmedNtpServer(*config);
  if (config->enabled != 0 && config->port != kNtpPort) {
    PLG_ERROR("[%s]Does not support setting NTP server port, default port is 123, ip[%s], port[%d].[%s(%d)]",
              server.c_str(), static_cast<int>(config->port));
    return NETCAM_NOT_SUPPORTED;
  }
  const std::string url = "http://" + GetDeviceAddress() + kNtpPath;
  const std::string body = control::SetNtpCfgBody(server, config->enabled != 0);
  std::string response;
  if (!SendHttpPostReqWithRsp(response, url, body, User(), Password(), "application/json; charset=utf-8")) {
    PLG_ERROR("[%s]SetNtpCfg failed, url[%s], device-ntp-info[%s], rsp[%s].[%s(%d)]", url.c_str(), body.c_str(),
              response.c_str());
    return NETCAM_FAIL;
  }
  int64_t code = 0;
  if (!control::NtpErrorCode(response, code)) {
    PLG_ERROR("[%s]Response data is invalid, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return NETCAM_FAIL;
  }
  if (code > 0) {
    PLG_ERROR("[%s]SetNtpCfg failed, url[%s], device-ntp-info[%s], rsp[%s].[%s(%d)]", url.c_str(), body.c_str(),
              response.c_str());
    return NETCAM_FAIL;
  }
  PLG_INFO("[%s]Set device ntp success, url[%s], device-ntp-info[%s], rsp[%s].[%s(%d)]", url.c_str(), body.c_str(),
           response.c_str());
  return NETCAM_OK;
}

int32_t CPlgDeviceObjectImplement::GetNtpCfg(DeviceNtpConfig* config) {
  if (config == nullptr) {
    PLG_ERROR("[%s]Input param is null.[%s(%d)]");
    return NETCAM_FAIL;
  }
  const std::string url = "http://" + GetDeviceAddress() + kNtpPath;
  const std::string body = "{\"apiVersion\":\"1.1\",\"method\":\"getNTPInfo\"}";
  std::string response;
  if (!SendHttpPostReqWithRsp(response, url, body, User(), Password(), "application/json")) {
    PLG_ERROR("[%s]GetNtpCfg failed, url[%s], device-ntp-info[%s], rsp[%s].[%s(%d)]", url.c_str(), body.c_str(),
              response.c_str());
    return NETCAM_FAIL;
  }
  if (!control::ApplyNtpInfo(response, *config)) {
    PLG_ERROR("[%s]Response data is invalid, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return NETCAM_FAIL;
  }
  PLG_INFO("[%s]Get device ntp success, url[%s], device-ntp-info[%s], rsp[%s].[%s(%d)]", url.c_str(), body.c_str(),
           response.c_str());
  return NETCAM_OK;
}
