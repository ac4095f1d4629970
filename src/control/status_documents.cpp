// Configuration queries and the camera's disks: the device-information and
// version records of the configuration commands.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "session/PluginLog.h"
#include "XmlMarkup.h"
#include "session/axis_device_object_implement.h"

namespace {

int32_t DiskStatusCode(const std::string& status) {
  if (status == "OK") return 0;
  if (status == "disconnected") return 5;
  return 2;
}

}  // namespace

int32_t CPlgDeviceObjectImplement::GetConfigParam(uint32_t command, void* outBuffer, uint32_t /*length*/,
                                                  void* /*extra*/) {
  if (outBuffer == nullptr) {
    PLG_ERROR("[%s]NetcamPlugin: GetConfigParam Fail, pOutBuffer == NULL![%s(%d)]");
    return NETCAM_FAIL;
  }
  if (m_hLoginHandle < 0) {
    PLG_ERROR("[%s]NetcamPlugin: GetConfigParam Fail, device not login![%s(%d)]");
    return NETCAM_FAIL;
  }
  switch (command) {
    case PLUGIN_CFG_GET_DEVICE_INFO:
      return GetDevInfoParam(static_cast<DeviceInfoParam*>(outBuffer));
    case PLUGIN_CFG_GET_VERSION:
      return GetDevVersionParam(static_cast<DeviceVersionParam*>(outBuffer));
    default:
      if (command >= 1 && command <= 28) return NETCAM_NOT_SUPPORTED;
      PLG_ERROR("[%s]NetcamPlugin: unsupport config command:%d[%s(%d)]", static_cast<int>(command));
      return NETCAM_FAIL;
  }
}

int32_t CPlgDeviceObjectImplement::SetConfigParam(uint32_t command, const void* inBuffer, uint32_t /*length*/,
                                                  void* /*extra*/) {
  if (inBuffer == nullptr) {
    PLG_ERROR("[%s]NetcamPlugin: SetConfigParam Fail, pInBuffer == NULL![%s(%d)]");
    return NETCAM_FAIL;
  }
  if (m_hLoginHandle < 0) {
    PLG_ERROR("[%s]NetcamPlugin: SetConfigParam Fail, device not login![%s(%d)]");
    return NETCAM_FAIL;
  }
  // Setting the time (23) and NTP (24) come with the device-time feature.
  if (command >= 1 && command <= 24) return NETCAM_NOT_SUPPORTED;
  PLG_ERROR("[%s]NetcamPlugin: unsupport config command:%d[%s(%d)]", static_cast<int>(command));
  return NETCAM_NOT_SUPPORTED;
}

int32_t CPlgDeviceObjectImplement::GetDevInfoParam(DeviceInfoParam* out) {
  if (out == nullptr) {
    PLG_ERROR("[%s]pOutBuffer is null.[%s(%d)]");
    return NETCAM_FAIL;
  }
  std::memset(out, 0, sizeof *out);
  out->field438 = 1;
  DeviceBasicInfo info;
  if (!GetDeviceInfo(info)) {
    PLG_ERROR("[%s]GetDeviceInfo failed.[%s(%d)]");
    return NETCAM_FAIL;
  }
  std::vector<DiskEntry> disks;
  if (!GetDeviceDiskList(disks)) {
    PLG_ERROR("[%s]GetDeviceDiskList failed.[%s(%d)]");
    return NETCAM_FAIL;
  }
  KOR_Memcpy_s(out->serialNumber, sizeof out->serialNumber, info.serialNumber.data(),
               std::min(info.serialNumber.size(), sizeof out->serialNumber));
  std::snprintf(out->ip, 255, "%s", std::string(m_stLoginParam.ip, strnlen(m_stLoginParam.ip, sizeof m_stLoginParam.ip)).c_str());
  out->field430 = 0;
  out->diskCount = static_cast<uint16_t>(disks.size());
  out->field434 = 1;
  DeviceChannelEntry& channel = out->channels[0];
  std::snprintf(channel.name, 255, "Chan_%02d", 1);
  channel.channelNo = 1;
  channel.field290 = 1;
  return NETCAM_OK;
}

int32_t CPlgDeviceObjectImplement::GetDevVersionParam(DeviceVersionParam* out) {
  if (out == nullptr) {
    PLG_ERROR("[%s]NetcamPlugin: Param is null[%s(%d)]");
    return NETCAM_FAIL;
  }
  DeviceBasicInfo info;
  if (!GetDeviceInfo(info)) {
    PLG_ERROR("[%s]GetDeviceInfo failed.[%s(%d)]");
    return NETCAM_FAIL;
  }
  // No terminator beyond the copied text: the platform's field is fixed-size.
  std::memcpy(out->version, info.firmwareVersion.data(),
              std::min(info.firmwareVersion.size(), sizeof out->version));
  return NETCAM_OK;
}

bool CPlgDeviceObjectImplement::GetDeviceDiskList(std::vector<DiskEntry>& disks) {
  const std::string url = "http://" + GetDeviceAddress() + "/axis-cgi/disks/list.cgi?diskid=all";
  std::string response;
  if (!SendHttpGetReqWithRsp(response, url, User(), Password())) {
    PLG_ERROR("[%s]GetDeviceDiskList failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return false;
  }
  CXmlMarkup xml;
  if (!xml.SetDoc(response) || !xml.FindElem("root") || !xml.IntoElem()) {
    PLG_ERROR("[%s]Response data is invalid, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return false;
  }
  if (!xml.FindElem("disks")) return false;
  xml.IntoElem();
  uint32_t index = 0;
  while (xml.FindElem("disk")) {
    const std::string total = xml.GetAttrib("totalsize");
    if (total.empty() || total == "0") {
      PLG_INFO("[%s]Disk total size is zero.[%s(%d)]");
      continue;
    }
    DiskEntry disk;
    disk.index = ++index;
    disk.totalSize = static_cast<int32_t>(std::strtol(total.c_str(), nullptr, 10));
    disk.freeSize = static_cast<int32_t>(std::strtol(xml.GetAttrib("freesize").c_str(), nullptr, 10));
    disk.status = DiskStatusCode(xml.GetAttrib("status"));
    disks.push_back(disk);
  }
  PLG_INFO("[%s]Get device info success, url[%s], device-disk[%s].[%s(%d)]", url.c_str(), response.c_str());
  return true;
}
