// The camera's clock and its NTP client: the date CGI for the clock, the NTP
// JSON API for the client's settings.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "RapidJsonProto.h"
#include "XmlMarkup.h"
#include "control/ControlText.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

// The camera's NTP client takes no other port.
constexpr int32_t kNtpPort = 123;
constexpr int32_t kReportedNtpInterval = 60;
constexpr char kNtpPath[] = "/axis-cgi/ntp.cgi";

// Both set requests put the server in quotes, so a disabled client is sent the
// text "null" as its first server; cameras take that as an unused slot name.
std::string NtpBody(const char* format, const std::string& server, bool enabled) {
  const std::string first = enabled ? server : "null";
  std::string body(std::strlen(format) + first.size() + 8, '\0');
  const int length = std::snprintf(body.data(), body.size(), format, first.c_str(), enabled ? "true" : "false");
  body.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return body;
}

}  // namespace

namespace control {

bool ParseNtpParams(const std::string& document, NtpParams& out) {
  std::memset(&out, 0, sizeof out);
  CXmlMarkup xml;
  if (!xml.SetDoc(document) || !xml.FindElem("Params") || !xml.IntoElem()) return false;
  const char* const names[] = {"NTPServer",       "Interval", "EnableNTP", "TimeDifferenceH",
                               "TimeDifferenceM", "res1",     "NtpPort"};
  std::string values[7];
  for (size_t i = 0; i < 7; ++i) {
    if (!xml.FindElem(names[i], true)) return false;
    values[i] = xml.GetData();
  }
  auto number = [&](size_t i) { return static_cast<int32_t>(std::strtol(values[i].c_str(), nullptr, 10)); };
  std::snprintf(out.server, sizeof out.server, "%s", values[0].c_str());
  out.interval = static_cast<uint16_t>(number(1));
  out.enable = static_cast<uint8_t>(number(2));
  out.timeDifferenceH = static_cast<int8_t>(number(3));
  out.timeDifferenceM = static_cast<int8_t>(number(4));
  out.port = static_cast<uint16_t>(number(6));
  return true;
}

std::string DateSetUrl(const std::string& address, const NET_DEV_TIME& time) {
  char path[160];
  std::snprintf(path, sizeof path,
                "/axis-cgi/admin/date.cgi?action=set&year=%u&month=%u&day=%u&hour=%u&minute=%u&second=%u", time.year,
                time.month, time.day, time.hour, time.minute, time.second);
  return "http://" + address + path;
}

std::string SetDevTimeNtpBody(const std::string& server, bool enabled) {
  return NtpBody(
      "{\"apiVersion\":\"1.1\",\"method\":\"setNTPClientConfiguration\",\"params\":{\"staticServers\":[\"%s\",null],"
      "\"enabled\":%s}}",
      server, enabled);
}

std::string SetNtpCfgBody(const std::string& server, bool enabled) {
  return NtpBody(
      "{\"apiVersion\":\"1.1\",\"method\":\"setNTPClientConfiguration\",\"params\":{\"serversSource\":\"static\","
      "\"staticServers\":[\"%s\",null],\"enabled\":%s}}",
      server, enabled);
}

std::string TrimmedNtpServer(const DeviceNtpConfig& config) {
  std::string server(config.server, strnlen(config.server, sizeof config.server));
  const char* blanks = " \t\r\n\v\f";
  const size_t first = server.find_first_not_of(blanks);
  if (first == std::string::npos) return {};
  return server.substr(first, server.find_last_not_of(blanks) - first + 1);
}

bool ApplyNtpInfo(const std::string& answer, DeviceNtpConfig& config) {
  Tarn::Proto::CRapidJsonProto json;
  if (!json.set_str(answer)) return false;
  const std::string enabled = json.GetString("/data/client/enabled", "");
  const std::string source = json.GetString("/data/client/serversSource", "");
  const std::string server = json.GetString("/data/client/staticServers[1]", "");
  // Servers the camera learns from DHCP are not ones the platform can set: reported as off.
  config.enabled = 0;
  if (enabled == "true" && source == "static" && !server.empty()) {
    config.enabled = 1;
    // Terminated when it fits; a name of 32 bytes or more fills the field unterminated.
    const size_t copied = std::min(server.size() + 1, sizeof config.server);
    std::memcpy(config.server, server.c_str(), copied);
    config.port = kNtpPort;
    config.interval = kReportedNtpInterval;
  }
  return true;
}

bool NtpErrorCode(const std::string& answer, int64_t& code) {
  Tarn::Proto::CRapidJsonProto json;
  if (!json.set_str(answer)) return false;
  code = json.GetInt("/error/code", 0);
  return true;
}

}  // namespace control

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
