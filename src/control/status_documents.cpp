// Configuration commands, the camera's disks, and the ability and work-status
// documents the platform reads to learn what a camera can do and how it is.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "XmlMarkup.h"
#include "control/ControlText.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

int32_t DiskStatusCode(const std::string& status) {
  if (status == "OK") return 0;
  if (status == "disconnected") return 5;
  return 2;
}

constexpr char kXmlDeclaration[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

}  // namespace

namespace control {

bool ParseAbilityCommand(const std::string& document, std::string& command) {
  CXmlMarkup xml;
  if (!xml.SetDoc(document) || !xml.FindElem("Params") || !xml.IntoElem() || !xml.FindElem("Command")) return false;
  command = xml.GetData();
  return true;
}

std::string AbilityDocument() {
  CXmlMarkup xml;
  xml.AddElem("VideoPicAbility");
  xml.SetAttrib("version", "2.0");
  xml.IntoElem();
  xml.AddElem("channelNO", 1);
  xml.AddElem("MotionDetection", 1);
  return kXmlDeclaration + xml.GetDoc();
}

DiskListResult ParseDiskList(const std::string& answer, std::vector<DiskEntry>& disks, int& skipped) {
  CXmlMarkup xml;
  if (!xml.SetDoc(answer) || !xml.FindElem("root") || !xml.IntoElem()) return DiskListResult::kInvalid;
  if (!xml.FindElem("disks")) return DiskListResult::kNoDisks;
  xml.IntoElem();
  uint32_t index = 0;
  while (xml.FindElem("disk")) {
    const std::string total = xml.GetAttrib("totalsize");
    if (total.empty() || total == "0") {  // a share that is not mounted, or no card
      ++skipped;
      continue;
    }
    DiskEntry disk;
    disk.index = ++index;
    disk.totalSize = static_cast<int32_t>(std::strtol(total.c_str(), nullptr, 10));
    disk.freeSize = static_cast<int32_t>(std::strtol(xml.GetAttrib("freesize").c_str(), nullptr, 10));
    disk.status = DiskStatusCode(xml.GetAttrib("status"));
    disks.push_back(disk);
  }
  return DiskListResult::kOk;
}

std::string WorkStatusDocument(const WorkStatusInput& input) {
  const int64_t up = input.ok ? 1 : 0;
  const int64_t recording = input.recording ? 1 : 0;
  CXmlMarkup xml;
  xml.AddElem("WorkStatus");
  xml.SetAttrib("version", "1.0");
  xml.IntoElem();
  xml.AddElem("DeviceStatusInfo");
  xml.IntoElem();
  xml.AddElem("SerialNum", input.serialNumber);
  xml.AddElem("MainVersion", input.firmwareVersion);
  xml.AddElem("ChanNum", 1);
  xml.AddElem("IOinNum", 0);
  xml.AddElem("IOoutNum", 0);
  xml.AddElem("TalkChanNum", 0);
  xml.AddElem("HDNum", static_cast<int64_t>(input.disks.size()));
  xml.AddElem("Online", up);
  xml.AddElem("WorkStatus", up);
  xml.OutOfElem();
  xml.AddElem("CameraStatusInfo");
  xml.IntoElem();
  xml.AddElem("Camera");
  xml.SetAttrib("index", 1);
  xml.IntoElem();
  xml.AddElem("ChanType", "Analog");
  xml.AddElem("Enable", 1);
  xml.AddElem("Name", "Chan_01");
  xml.AddElem("RecStatus", recording);
  xml.AddElem("Signal", up);
  xml.OutOfElem();
  xml.OutOfElem();
  xml.AddElem("RecordStatusInfo");
  xml.IntoElem();
  xml.AddElem("Channel");
  xml.SetAttrib("index", 1);
  xml.SetAttrib("Index", 1);
  xml.IntoElem();
  xml.AddElem("RecordStatus", recording);
  xml.OutOfElem();
  xml.OutOfElem();
  xml.AddElem("HDStatusInfo");
  xml.IntoElem();
  for (const DiskEntry& disk : input.disks) {
    xml.AddElem("HardDisk");
    xml.SetAttrib("index", static_cast<int64_t>(disk.index));
    xml.IntoElem();
    xml.AddElem("Capacity", disk.totalSize);
    xml.AddElem("FreeCap", disk.freeSize);
    xml.AddElem("Status", disk.status <= 1 ? 1 : 0);
    xml.OutOfElem();
  }
  return xml.GetDoc();
}

}  // namespace control

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
