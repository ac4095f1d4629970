// Pan, tilt and zoom: the platform's PTZ commands as VAPIX PTZ CGI requests.
// Every command first reads the camera's position, so zoom steps start where
// the camera really is.
#include "control/ControlText.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

// Control types and configuration commands the platform knows but this camera family does not offer.
int32_t PtzNotSupported() { return NETCAM_NOT_SUPPORTED; }

}  // namespace

int32_t CPlgDeviceObjectImplement::PTZControl(uint32_t type, const void* pInBuffer, uint32_t length, uint32_t extra) {
  if (pInBuffer == nullptr) {
    PLG_ERROR("[%s]NetcamPlugin: PTZControl Fail, pInBuffer == NULL![%s(%d)]");
    return NETCAM_FAIL;
  }
  if (m_hLoginHandle < 0) {
    PLG_ERROR("[%s]NetcamPlugin: PTZControl Fail, device not login![%s(%d)]");
    return NETCAM_FAIL;
  }
  switch (type) {
    case 1:
      return PtzNormalControl(pInBuffer, length, extra);
    case 2:
      return PtzExtendedControl(pInBuffer, length, extra);
    case 6:
    case 7:
    case 8:
      return PtzNotSupported();
    default:
      PLG_ERROR("[%s]NetcamPlugin: unsupport ptz control command:%d[%s(%d)]", static_cast<int>(type));
      return NETCAM_FAIL;
  }
}

int32_t CPlgDeviceObjectImplement::PtzExtendedControl(const void* pInBuffer, uint32_t length, uint32_t extra) {
  return PtzNormalControl(pInBuffer, length, extra);
}

int32_t CPlgDeviceObjectImplement::GetPTZConfig(uint32_t command, void* pOutBuffer, uint32_t /*length*/,
                                                uint32_t /*extra*/) {
  if (pOutBuffer == nullptr) {
    PLG_ERROR("[%s]NetcamPlugin: GetPTZConfig Fail, pOutBuffer == NULL![%s(%d)]");
    return NETCAM_FAIL;
  }
  if (m_hLoginHandle < 0) {
    PLG_ERROR("[%s]NetcamPlugin: GetPTZConfig Fail, device not login![%s(%d)]");
    return NETCAM_FAIL;
  }
  if (command == 3) return PtzNotSupported();
  PLG_ERROR("[%s]NetcamPlugin: unsupport ptz get command:%d[%s(%d)]", static_cast<int>(command));
  return NETCAM_FAIL;
}

int32_t CPlgDeviceObjectImplement::SetPTZConfig(uint32_t command, const void* pInBuffer, uint32_t /*length*/,
                                                uint32_t /*extra*/) {
  if (pInBuffer == nullptr) {
    PLG_ERROR("[%s]NetcamPlugin: SetPTZConfig Fail, pInBuffer == NULL![%s(%d)]");
    return NETCAM_FAIL;
  }
  if (m_hLoginHandle < 0) {
    PLG_ERROR("[%s]NetcamPlugin: SetPTZConfig Fail, device not login![%s(%d)]");
    return NETCAM_FAIL;
  }
  if (command == 4 || command == 5) return PtzNotSupported();
  PLG_ERROR("[%s]NetcamPlugin: unsupport ptz set command:%d[%s(%d)]", static_cast<int>(command));
  return NETCAM_FAIL;
}

int32_t CPlgDeviceObjectImplement::PtzNormalControl(const void* pInBuffer, uint32_t /*length*/, uint32_t /*extra*/) {
  if (pInBuffer == nullptr) {
    PLG_ERROR("[%s]NetcamPlugin: Param is null[%s(%d)]");
    return NETCAM_FAIL;
  }
  const auto* input = static_cast<const PtzControlInput*>(pInBuffer);
  const uint32_t command = input->command;
  PLG_INFO("[%s]PtzNormalControl Command, cmd[%d].[%s(%d)]", static_cast<int>(command));
  if (!control::IsAcceptedPtzCommand(command)) {
    PLG_ERROR("[%s]Unsupported Command, cmd[%d].[%s(%d)]", static_cast<int>(command));
    return NETCAM_NOT_SUPPORTED;
  }
  float pan = 0;
  float tilt = 0;
  int32_t zoom = 0;
  if (!GetPTZPosition(pan, tilt, zoom)) {
    PLG_ERROR("[%s]GetPTZPosition failed.[%s(%d)]");
    return NETCAM_FAIL;
  }
  control::PtzCounters counters{zoom, m_nCurrentFocus, m_nCurrentIris};
  const control::PtzRequest request =
      control::BuildPtzRequest(GetDeviceAddress(), command, input->action, input->speed, input->presetNo, counters);
  m_nCurrentZoom = counters.zoom;
  m_nCurrentFocus = counters.focus;
  m_nCurrentIris = counters.iris;
  if (!request.mapped) {
    PLG_ERROR("[%s]NetcamPlugin: SendToAxisPTZ Not Support![%s(%d)]");
    return NETCAM_OK;
  }
  if (request.moving) {
    PLG_INFO("[%s]PtzNormalControl Command, cmd[%d], action[%d], speed[%d], axis-speed[%d].[%s(%d)]",
             static_cast<int>(command), request.action, request.speed, request.axisSpeed);
  }
  std::string response;
  if (!SendHttpGetReqWithRsp(response, request.url, User(), Password())) {
    // Logged at the information level: a refused move is the operator's business, not a fault.
    PLG_INFO(
        "[%s]PtzNormalControl Command failed, cmd[%d], action[%d], speed[%d], axis-speed[%d], url[%s], "
        "rsp-data[%s].[%s(%d)]",
        static_cast<int>(command), request.action, request.speed, request.axisSpeed, request.url.c_str(),
        response.c_str());
    return NETCAM_FAIL;
  }
  PLG_INFO(
      "[%s]PtzNormalControl Command success, cmd[%d], action[%d], speed[%d], axis-speed[%d], url[%s], "
      "rsp-data[%s].[%s(%d)]",
      static_cast<int>(command), request.action, request.speed, request.axisSpeed, request.url.c_str(),
      response.c_str());
  return NETCAM_OK;
}

bool CPlgDeviceObjectImplement::GetPTZPosition(float& pan, float& tilt, int32_t& zoom) {
  const std::string url = "http://" + GetDeviceAddress() + "/axis-cgi/com/ptz.cgi?query=position";
  std::string response;
  if (!SendHttpGetReqWithRsp(response, url, User(), Password())) {
    PLG_ERROR("[%s]GetPTZPosition failed, url[%s], rsp-data[%s].[%s(%d)]", url.c_str(), response.c_str());
    return false;
  }
  std::vector<std::string> invalid;
  control::ParsePtzPosition(response, pan, tilt, zoom, &invalid);
  for (const std::string& piece : invalid) {
    PLG_ERROR("[%s]Value invalid, value[%s], url[%s], rsp-data[%s].[%s(%d)]", piece.c_str(), url.c_str(),
              response.c_str());
  }
  return true;
}
