// ControlText.cpp - the texts of device control and status, free of I/O (see
// ControlText.h): kept apart from the operations so that tests and fuzzers
// drive them with text alone.
#include "control/ControlText.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <locale>
#include <sstream>
#include <string_view>

#include "RapidJsonProto.h"
#include "XmlMarkup.h"

namespace {

// ---- PTZ

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

// ---- Time and NTP

// The camera's NTP client takes no other port.
constexpr int32_t kNtpPort = 123;
constexpr int32_t kReportedNtpInterval = 60;

// Both set requests put the server in quotes, so a disabled client is sent the
// text "null" as its first server, not a JSON null; the cameras accept either.
std::string NtpBody(const char* format, const std::string& server, bool enabled) {
  const std::string first = enabled ? server : "null";
  std::string body(std::strlen(format) + first.size() + 8, '\0');
  const int length = std::snprintf(body.data(), body.size(), format, first.c_str(), enabled ? "true" : "false");
  body.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return body;
}

// ---- Documents

int32_t DiskStatusCode(const std::string& status) {
  if (status == "OK") return 0;
  if (status == "disconnected") return 5;
  return 2;
}

constexpr char kXmlDeclaration[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

// ---- Snapshot

constexpr char kResolutionKey[] = "Properties.Image.Resolution=";
// Asked for when the camera lists no sizes of its own.
constexpr char kFallbackResolution[] = "320x240";

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
  // Unchecked, as the platform gives it; computed unsigned so that a wild speed wraps rather than overflows.
  const int32_t s = static_cast<int32_t>(static_cast<uint32_t>(speed) * 10u);
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

bool ParseResolutions(const std::string& answer, std::vector<std::string>& resolutions) {
  resolutions.clear();
  const size_t found = answer.find(kResolutionKey);
  if (found == std::string::npos) {
    resolutions.emplace_back(kFallbackResolution);
    return false;
  }
  // To the end of the answer, untrimmed: the sizes are handed on as the camera wrote them.
  size_t start = found + sizeof kResolutionKey - 1;
  while (start <= answer.size()) {
    size_t end = answer.find(',', start);
    if (end == std::string::npos) end = answer.size();
    if (end > start) resolutions.push_back(answer.substr(start, end - start));
    start = end + 1;
  }
  return true;
}

}  // namespace control
