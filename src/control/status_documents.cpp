// Configuration commands, the camera's disks, and the ability and work-status
// documents the platform reads to learn what a camera can do and how it is.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "control/ControlText.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

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

int32_t CPlgDeviceObjectImplement::SetConfigParam(uint32_t command, const void* inBuffer, uint32_t length,
                                                  void* /*extra*/) {
  if (inBuffer == nullptr) {
    PLG_ERROR("[%s]NetcamPlugin: SetConfigParam Fail, pInBuffer == NULL![%s(%d)]");
    return NETCAM_FAIL;
  }
  if (m_hLoginHandle < 0) {
    PLG_ERROR("[%s]NetcamPlugin: SetConfigParam Fail, device not login![%s(%d)]");
    return NETCAM_FAIL;
  }
  if (command == PLUGIN_CFG_SET_TIME) return SetDevTime(static_cast<const NET_DEV_TIME*>(inBuffer));
  if (command == PLUGIN_CFG_SET_TIME_NTP) return SetDevTimeNTP(static_cast<const char*>(inBuffer), length);
  if (command >= 1 && command <= 22) return NETCAM_NOT_SUPPORTED;
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
  std::snprintf(out->ip, 255, "%s",
                std::string(m_stLoginParam.ip, strnlen(m_stLoginParam.ip, sizeof m_stLoginParam.ip)).c_str());
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
  std::memcpy(out->version, info.firmwareVersion.data(), std::min(info.firmwareVersion.size(), sizeof out->version));
  return NETCAM_OK;
}

bool CPlgDeviceObjectImplement::GetDeviceDiskList(std::vector<DiskEntry>& disks) {
  const std::string url = "http://" + GetDeviceAddress() + "/axis-cgi/disks/list.cgi?diskid=all";
  std::string response;
  if (!SendHttpGetReqWithRsp(response, url, User(), Password())) {
    PLG_ERROR("[%s]GetDeviceDiskList failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return false;
  }
  int skipped = 0;
  const control::DiskListResult parsed = control::ParseDiskList(response, disks, skipped);
  if (parsed == control::DiskListResult::kInvalid) {
    PLG_ERROR("[%s]Response data is invalid, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return false;
  }
  if (parsed == control::DiskListResult::kNoDisks) return false;
  for (int i = 0; i < skipped; ++i) PLG_INFO("[%s]Disk total size is zero.[%s(%d)]");
  PLG_INFO("[%s]Get device info success, url[%s], device-disk[%s].[%s(%d)]", url.c_str(), response.c_str());
  return true;
}

int32_t CPlgDeviceObjectImplement::GetDevcieAbility(const char* pInBuf, int32_t inLength, char* pOutBuf,
                                                    int32_t outLength) {
  if (pInBuf == nullptr || pOutBuf == nullptr) {
    PLG_ERROR("[%s]NetcamPlugin: pInBuf == NULL or pOutBuf == NULL![%s(%d)]");
    return NETCAM_FAIL;
  }
  if (m_hLoginHandle == -1) {
    PLG_ERROR("[%s]NetcamPlugin: GetQelDevcieAbility Fail. m_hLoginHandle == -1[%s(%d)]");
    return NETCAM_FAIL;
  }
  // The platform's text need not be terminated within its length.
  const size_t inSize = inLength > 0 ? strnlen(pInBuf, static_cast<size_t>(inLength)) : std::strlen(pInBuf);
  std::string command;
  if (!control::ParseAbilityCommand(std::string(pInBuf, inSize), command)) return NETCAM_FAIL;
  if (std::atoi(command.c_str()) != PLUGIN_ABILITY_VIDEO_PIC) {
    PLG_ERROR("[%s]NetcamPlugin: Unsupport ability command:%s[%s(%d)]", command.c_str());
    return NETCAM_FAIL;
  }
  const std::string document = control::AbilityDocument();
  // No terminator is written, so a text exactly as long as the buffer fits.
  if (static_cast<int64_t>(document.size()) > outLength) {
    PLG_ERROR("[%s]NetcamPlugin: strOutBuf.length() > iOutLength[%s(%d)]");
    return NETCAM_FAIL;
  }
  std::memcpy(pOutBuf, document.data(), document.size());
  PLG_INFO("[%s]GetDevcieAbility info[%s].[%s(%d)]", document.c_str());
  return NETCAM_OK;
}

int32_t CPlgDeviceObjectImplement::GetWorkStatus(char* pOutBuffer, int32_t outLength) {
  // The document is answered even for a camera that cannot be reached: it then says so.
  control::WorkStatusInput input;
  input.ok = [&] {
    DeviceBasicInfo info;
    if (!GetDeviceInfo(info)) {
      PLG_ERROR("[%s]GetDeviceInfo failed.[%s(%d)]");
      return false;
    }
    input.serialNumber = info.serialNumber;
    input.firmwareVersion = info.firmwareVersion;
    if (!GetDeviceDiskList(input.disks)) {
      input.disks.clear();
      PLG_ERROR("[%s]GetDeviceDiskList failed.[%s(%d)]");
      return false;
    }
    if (!GetRecordingStatus(&input.recording)) {
      input.recording = false;
      PLG_ERROR("[%s]GetRecordingStatus failed.[%s(%d)]");
      return false;
    }
    return true;
  }();
  const std::string document = control::WorkStatusDocument(input);
  // Unlike the ability text, this one is terminated, so it needs one byte more.
  if (pOutBuffer == nullptr) {
    PLG_ERROR("[%s]pOutBuffer is null.[%s(%d)]");
    return NETCAM_FAIL;
  }
  if (static_cast<int64_t>(document.size()) >= outLength) {
    PLG_ERROR("[%s]NetcamPlugin: GetWorkStatus failed, output buffer len:%d is small than retlen:%lld![%s(%d)]",
              static_cast<int>(outLength), static_cast<long long>(document.size()));
    return NETCAM_FAIL;
  }
  KOR_Strncpy_s(pOutBuffer, static_cast<size_t>(outLength), document.c_str(), document.size());
  PLG_INFO("[%s]GetWorkStatus info[%s].[%s(%d)]", document.c_str());
  return NETCAM_OK;
}
