// Opening a camera and reading its identity.
#include <cstdio>
#include <cstring>

#include "RapidJsonProto.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

// The identity request, byte for byte as cameras of every firmware accept it.
constexpr char kGetAllPropertiesBody[] =
    "{              \"apiVersion\": \"1.3\",              \"context\": \"Client defined request ID\","
    "              \"method\": \"getAllProperties\"               }";

constexpr char kSupportedBrand[] = "AXIS";

// The record's texts are fixed-size fields: never read past them.
std::string FieldText(const char* field, size_t size) { return std::string(field, strnlen(field, size)); }

}  // namespace

std::string CPlgDeviceObjectImplement::Ip() const { return FieldText(m_stLoginParam.ip, sizeof m_stLoginParam.ip); }

std::string CPlgDeviceObjectImplement::User() const {
  return FieldText(m_stLoginParam.user, sizeof m_stLoginParam.user);
}

std::string CPlgDeviceObjectImplement::Password() const {
  return FieldText(m_stLoginParam.password, sizeof m_stLoginParam.password);
}

std::string CPlgDeviceObjectImplement::GetDeviceAddress() const {
  char address[64] = {};
  std::snprintf(address, sizeof address, "%s:%d", FieldText(m_stLoginParam.ip, sizeof m_stLoginParam.ip).c_str(),
                static_cast<int>(m_stLoginParam.port));
  return address;
}

int32_t CPlgDeviceObjectImplement::OpenDevice(const DeviceLoginParam* param) {
  if (param == nullptr) {
    PLG_ERROR("[%s]Input param invalid.[%s(%d)]");
    return NETCAM_FAIL;
  }
  std::memset(&m_stLoginParam, 0, sizeof m_stLoginParam);
  std::memcpy(&m_stLoginParam, param, sizeof m_stLoginParam);
  m_hLoginHandle = -1;
  const std::string ip = FieldText(m_stLoginParam.ip, sizeof m_stLoginParam.ip);
  PLG_INFO("[%s]OpenDevice begin, ip[%s], port[%d].[%s(%d)]", ip.c_str(), static_cast<int>(m_stLoginParam.port));

  DeviceBasicInfo info;
  if (!GetDeviceInfo(info)) {
    PLG_ERROR("[%s]GetDeviceInfo failed.[%s(%d)]");
    return NETCAM_FAIL;
  }
  if (info.brand != kSupportedBrand) {
    PLG_ERROR("[%s]Device type is not supported, device-type[%s].[%s(%d)]", info.brand.c_str());
    return NETCAM_FAIL;
  }
  m_hLoginHandle = 1;
  PLG_INFO("[%s]OpenDevice success, ip[%s], port[%d].[%s(%d)]", ip.c_str(), static_cast<int>(m_stLoginParam.port));
  return NETCAM_OK;
}

int32_t CPlgDeviceObjectImplement::CloseDevice() {
  PLG_INFO("[%s]CloseDevice, ip[%s], port[%d].[%s(%d)]", FieldText(m_stLoginParam.ip, sizeof m_stLoginParam.ip).c_str(),
           static_cast<int>(m_stLoginParam.port));
  std::memset(&m_stLoginParam, 0, sizeof m_stLoginParam);
  m_hLoginHandle = -1;
  return NETCAM_OK;
}

bool CPlgDeviceObjectImplement::GetDeviceInfo(DeviceBasicInfo& out) {
  const std::string url = "http://" + GetDeviceAddress() + "/axis-cgi/basicdeviceinfo.cgi";
  std::string response;
  if (!SendHttpPostReqWithRsp(response, url, kGetAllPropertiesBody, User(), Password(), "")) {
    PLG_ERROR("[%s]GetDeviceInfo failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return false;
  }
  Tarn::Proto::CRapidJsonProto json;
  if (!json.set_str(response)) {
    PLG_ERROR("[%s]Response data is invalid, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return false;
  }
  out.brand = json.GetString("/data/propertyList/Brand", "");
  out.productFullName = json.GetString("/data/propertyList/ProdFullName", "");
  out.serialNumber = json.GetString("/data/propertyList/SerialNumber", "");
  out.firmwareVersion = json.GetString("/data/propertyList/Version", "");
  PLG_INFO("[%s]Get device info success, url[%s], device info[%s].[%s(%d)]", url.c_str(), response.c_str());
  return true;
}
