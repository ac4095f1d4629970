// Pan, tilt and zoom: the platform's PTZ commands as VAPIX PTZ CGI requests.
// Every command first reads the camera's position, so zoom steps start where
// the camera really is.
#include <cstdio>
#include <locale>
#include <sstream>
#include <string_view>

#include "control/ControlText.h"
#include "session/PluginLog.h"
#include "session/axis_device_object_implement.h"

namespace {

// Platform command codes.
enum PtzCommand : uint32_t {
  kBacklight = 2,
  kSetPreset = 8,
  kClearPreset = 9,
  kZoomIn = 11,
  kZoomOut = 12,
  kFocusNear = 13,
  kFocusFar = 14,
  kIrisOpen = 15,
  kIrisClose = 16,
  kTiltUp = 21,
  kTiltDown = 22,
  kPanLeft = 23,
  kPanRight = 24,
  kUpLeft = 25,
  kUpRight = 26,
  kDownLeft = 27,
  kDownRight = 28,
  kAutoPan = 29,
  kGotoPreset = 39,
};

// The commands the platform may steer; the table below maps more, which stay unoffered.
constexpr uint32_t kAcceptedCommands[] = {kSetPreset, kClearPreset, kZoomIn,    kZoomOut, kTiltUp,
                                          kTiltDown,  kPanLeft,     kPanRight,  kUpLeft,  kUpRight,
                                          kDownLeft,  kDownRight,   kGotoPreset};

// Zoom moves in fixed steps at a fixed speed, whatever speed the platform asked for.
constexpr int32_t kCounterStep = 100;
constexpr int32_t kCounterTop = 9999;
constexpr int32_t kZoomSpeed = 4;

constexpr size_t kMaxInvalidPieces = 8;

// Control types and configuration commands the platform knows but this camera family does not offer.
int32_t PtzNotSupported() { return NETCAM_NOT_SUPPORTED; }

std::string Format(const char* format, const std::string& address, int32_t first, int32_t second = 0) {
  char text[256];
  std::snprintf(text, sizeof text, format, address.c_str(), first, second);
  return text;
}

// The leading number of a value, trailing text ignored; an empty or non-numeric value reads as 0.
template <typename Number>
Number LeadingNumber(const std::string& text) {
  Number value{};
  if (text.empty()) return value;
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  in >> value;
  return value;
}

}  // namespace

namespace control {

bool IsAcceptedPtzCommand(uint32_t command) {
  for (uint32_t accepted : kAcceptedCommands) {
    if (command == accepted) return true;
  }
  return false;
}

PtzRequest BuildPtzRequest(const std::string& address, uint32_t command, int32_t action, int32_t speed,
                           int32_t presetNo, PtzCounters& counters) {
  static constexpr char kPanTilt[] = "http://%s/axis-cgi/com/ptz.cgi?continuouspantiltmove=%d,%d";
  static constexpr char kPanTiltStop[] = "http://%s/axis-cgi/com/ptz.cgi?continuouspantiltmove=0,0";
  static constexpr char kZoom[] = "http://%s/axis-cgi/com/ptz.cgi?zoom=%d&continuouszoommove=%d";
  static constexpr char kZoomStop[] = "http://%s/axis-cgi/com/ptz.cgi?continuouszoommove=%d";
  static constexpr char kFocus[] = "http://%s/axis-cgi/com/ptz.cgi?focus=%d";
  static constexpr char kIris[] = "http://%s/axis-cgi/com/ptz.cgi?iris=%d&continuousirismove=%d";

  PtzRequest request;
  request.mapped = true;
  const bool start = action == 0;
  if (command == kSetPreset || command == kClearPreset || command == kGotoPreset) {
    const char* format = command == kSetPreset     ? "http://%s/axis-cgi/com/ptzconfig.cgi?setserverpresetno=%d"
                         : command == kClearPreset ? "http://%s/axis-cgi/com/ptzconfig.cgi?removeserverpresetno=%d"
                                                   : "http://%s/axis-cgi/com/ptz.cgi?gotoserverpresetno=%d";
    request.url = Format(format, address, presetNo);
    return request;
  }
  if (command == kBacklight) {
    request.action = action;
    request.url =
        Format(start ? "http://%s/axis-cgi/com/ptz.cgi?backlight=on" : "http://%s/axis-cgi/com/ptz.cgi?backlight=off",
               address, 0);
    return request;
  }
  if (!((command >= kZoomIn && command <= kIrisClose) || (command >= kTiltUp && command <= kAutoPan))) {
    request.mapped = false;
    return request;
  }
  request.moving = true;
  request.action = action;
  request.speed = speed;
  const int32_t s = static_cast<int32_t>(static_cast<uint32_t>(speed) * 10u);  // wraps like the camera's int
  request.axisSpeed = s;
  switch (command) {
    case kZoomIn:
    case kZoomOut:
      if (!start) {
        request.url = Format(kZoomStop, address, 0);
        break;
      }
      // The guard is tested before the step, so zooming in may pass the top once; only zooming out clamps.
      if (command == kZoomIn && counters.zoom < kCounterTop) counters.zoom += kCounterStep;
      if (command == kZoomOut && counters.zoom > 0) counters.zoom -= kCounterStep;
      if (command == kZoomOut && counters.zoom < 1) counters.zoom = 0;
      request.url = Format(kZoom, address, counters.zoom, command == kZoomIn ? kZoomSpeed : -kZoomSpeed);
      break;
    case kFocusNear:
    case kFocusFar:
      if (!start) break;  // nothing to stop: the URL stays empty
      if (command == kFocusNear && counters.focus < kCounterTop) counters.focus += kCounterStep;
      if (command == kFocusFar && counters.focus > 0) counters.focus -= kCounterStep;
      request.url = Format(kFocus, address, counters.focus);
      break;
    case kIrisOpen:
    case kIrisClose:
      if (start && command == kIrisOpen && counters.iris < kCounterTop) counters.iris += kCounterStep;
      if (start && command == kIrisClose && counters.iris > 0) counters.iris -= kCounterStep;
      request.url = Format(kIris, address, counters.iris, !start ? 0 : command == kIrisOpen ? s : -s);
      break;
    case kTiltDown:
      request.url = start ? Format(kPanTilt, address, 0, -s)
                          : Format("http://%s/axis-cgi/com/ptz.cgi?move=stop&speed=%d", address, 0);
      break;
    case kAutoPan:
      request.url = start ? Format(kPanTilt, address, s, 0) : Format(kPanTilt, address, 0, 0);
      break;
    default: {
      // Pan is the first number, tilt the second; right and up are positive.
      const int32_t pan = command == kPanLeft || command == kUpLeft || command == kDownLeft      ? -s
                          : command == kPanRight || command == kUpRight || command == kDownRight ? s
                                                                                                 : 0;
      const int32_t tilt = command == kTiltUp || command == kUpLeft || command == kUpRight ? s
                           : command == kDownLeft || command == kDownRight                 ? -s
                                                                                           : 0;
      request.url = start ? Format(kPanTilt, address, pan, tilt) : Format(kPanTiltStop, address, 0);
      break;
    }
  }
  return request;
}

void ParsePtzPosition(const std::string& body, float& pan, float& tilt, int32_t& zoom,
                      std::vector<std::string>* invalidPieces) {
  // Lines end in CR LF; a camera may also separate values by commas.
  std::string text;
  text.reserve(body.size());
  for (size_t i = 0; i < body.size(); ++i) {
    if (body[i] == '\r' && i + 1 < body.size() && body[i + 1] == '\n') {
      text += ',';
      ++i;
    } else {
      text += body[i];
    }
  }
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find(',', start);
    if (end == std::string::npos) end = text.size();
    const std::string_view piece(text.data() + start, end - start);
    start = end + 1;
    const size_t equals = piece.find('=');
    if (equals == std::string_view::npos || piece.find('=', equals + 1) != std::string_view::npos) {
      // A hostile answer could hold millions: the first few tell the story.
      if (invalidPieces != nullptr && invalidPieces->size() < kMaxInvalidPieces) invalidPieces->emplace_back(piece);
      continue;
    }
    const std::string_view key = piece.substr(0, equals);
    const std::string value(piece.substr(equals + 1));
    if (key == "pan") pan = LeadingNumber<float>(value);
    if (key == "tilt") tilt = LeadingNumber<float>(value);
    if (key == "zoom") zoom = LeadingNumber<int32_t>(value);
  }
}

}  // namespace control

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
