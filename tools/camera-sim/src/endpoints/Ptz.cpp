// com/ptz.cgi and com/ptzconfig.cgi: position queries, absolute, relative and
// continuous moves (the position changes over time), server presets.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <set>

#include "endpoints/Endpoint.h"

namespace camsim {

namespace {

HttpResponse PtzError(const std::string& message) { return TextAnswer(400, "Error: " + message + "\r\n"); }

// A command was carried out: the cameras answer 204 without a body.
HttpResponse Done() { return TextAnswer(204, "", ""); }

std::optional<double> ParseNumber(const std::string& text) {
  if (text.empty()) return std::nullopt;
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (*end != '\0' || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<int> ParseSpeed(const std::string& text) {
  auto value = ParseNumber(text);
  if (!value || *value < -100 || *value > 100) return std::nullopt;
  return static_cast<int>(*value);
}

std::string FormatPosition(const PtzState& ptz) {
  char text[256];
  std::snprintf(text, sizeof(text),
                "pan=%.4f\r\ntilt=%.4f\r\nzoom=%d\r\niris=%d\r\nfocus=%d\r\nbrightness=4999\r\nautofocus=on\r\n"
                "autoiris=on\r\n",
                ptz.pan, ptz.tilt, static_cast<int>(std::lround(ptz.zoom)), ptz.iris, ptz.focus);
  return text;
}

HttpResponse Query(const std::string& what, const PtzState& ptz) {
  if (what == "position") return TextAnswer(200, FormatPosition(ptz));
  if (what == "presetposall") {
    std::string text;
    for (const auto& [number, preset] : ptz.presets) {
      text += "presetposno" + std::to_string(number) + "=" + preset.name + "\r\n";
    }
    return TextAnswer(200, text);
  }
  if (what == "limits") {
    return TextAnswer(200,
                      "MinPan=-180\r\nMaxPan=180\r\nMinTilt=-90\r\nMaxTilt=90\r\nMinZoom=1\r\nMaxZoom=9999\r\n"
                      "MinIris=1\r\nMaxIris=9999\r\nMinFocus=1\r\nMaxFocus=9999\r\n");
  }
  return PtzError("unknown query " + what);
}

}  // namespace

HttpResponse HandlePtz(const HttpRequest& request, EndpointContext& context) {
  if (!context.config.hasPtz) return NotFoundAnswer(request.path);  // no PTZ driver, no CGI
  const auto params = ParseQuery(request.query);
  static const std::set<std::string> kKnown = {"camera",
                                               "query",
                                               "continuouspantiltmove",
                                               "continuouszoommove",
                                               "continuousfocusmove",
                                               "continuousirismove",
                                               "pan",
                                               "tilt",
                                               "zoom",
                                               "rpan",
                                               "rtilt",
                                               "rzoom",
                                               "move",
                                               "speed",
                                               "gotoserverpresetno",
                                               "gotoserverpresetname",
                                               "focus",
                                               "iris",
                                               "autofocus",
                                               "autoiris",
                                               "backlight",
                                               "info"};
  for (const auto& [name, value] : params) {
    if (kKnown.count(name) == 0) return PtzError("unknown parameter " + name);
  }
  if (params.empty()) return PtzError("no command given");
  auto has = [&](const char* name) { return params.count(name) != 0; };
  auto get = [&](const char* name) { return params.count(name) != 0 ? params.at(name) : std::string(); };
  if (has("camera") && get("camera") != "1" && get("camera") != "0") return PtzError("no such camera " + get("camera"));

  // Everything is checked before anything moves, so a bad request changes nothing.
  std::optional<std::pair<int, int>> panTiltSpeed;
  if (has("continuouspantiltmove")) {
    const std::string text = get("continuouspantiltmove");
    const size_t comma = text.find(',');
    auto pan = comma == std::string::npos ? std::nullopt : ParseSpeed(text.substr(0, comma));
    auto tilt = comma == std::string::npos ? std::nullopt : ParseSpeed(text.substr(comma + 1));
    if (!pan || !tilt) return PtzError("continuouspantiltmove wants two speeds -100..100, got " + text);
    panTiltSpeed = std::make_pair(*pan, *tilt);
  }
  std::optional<int> zoomSpeed;
  if (has("continuouszoommove")) {
    zoomSpeed = ParseSpeed(get("continuouszoommove"));
    if (!zoomSpeed) return PtzError("continuouszoommove wants a speed -100..100");
  }
  auto absolute = [&](const char* name, double low, double high) -> std::optional<std::optional<double>> {
    if (!has(name)) return std::optional<double>();
    auto value = ParseNumber(get(name));
    if (!value || *value < low || *value > high) return std::nullopt;
    return std::optional<double>(*value);
  };
  auto pan = absolute("pan", -180, 180), tilt = absolute("tilt", -90, 90), zoom = absolute("zoom", 1, 9999);
  auto rpan = absolute("rpan", -360, 360), rtilt = absolute("rtilt", -180, 180), rzoom = absolute("rzoom", -9999, 9999);
  auto focus = absolute("focus", 1, 9999), iris = absolute("iris", 1, 9999);
  if (!pan || !tilt || !zoom || !rpan || !rtilt || !rzoom || !focus || !iris) {
    return PtzError("a position is not a number or out of range");
  }
  const std::string move = get("move");
  if (has("move") && move != "stop" && move != "home" && move != "up" && move != "down" && move != "left" &&
      move != "right" && move != "upleft" && move != "upright" && move != "downleft" && move != "downright") {
    return PtzError("unknown move " + move);
  }
  if (has("backlight") && get("backlight") != "on" && get("backlight") != "off") {
    return PtzError("backlight is on or off");
  }
  std::optional<int> presetNumber;
  if (has("gotoserverpresetno")) {
    auto number = ParseNumber(get("gotoserverpresetno"));
    if (!number || *number < 1 || *number != std::floor(*number)) return PtzError("gotoserverpresetno is a number");
    presetNumber = static_cast<int>(*number);
  }
  const std::string presetName = get("gotoserverpresetname");

  const auto now = std::chrono::steady_clock::now();
  if (has("query")) {
    PtzState ptz = context.state.Modify([&](StateData& s) {
      SettlePtz(s.ptz, now);
      return s.ptz;
    });
    return Query(get("query"), ptz);
  }
  const std::string problem = context.state.Modify([&](StateData& s) -> std::string {
    PtzState& ptz = s.ptz;
    SettlePtz(ptz, now);
    if (presetNumber || !presetName.empty()) {
      const PtzPreset* preset = nullptr;
      for (const auto& [number, candidate] : ptz.presets) {
        if ((presetNumber && number == *presetNumber) || (!presetName.empty() && candidate.name == presetName)) {
          preset = &candidate;
        }
      }
      if (preset == nullptr) return "no such preset";
      ptz.pan = preset->pan;
      ptz.tilt = preset->tilt;
      ptz.zoom = preset->zoom;
      ptz.panSpeed = ptz.tiltSpeed = ptz.zoomSpeed = 0;
    }
    if (move == "stop") ptz.panSpeed = ptz.tiltSpeed = ptz.zoomSpeed = 0;
    if (move == "home") {
      ptz.pan = ptz.tilt = 0;
      ptz.zoom = 1;
    }
    // Step moves: a tenth of a turn sideways, ten degrees up or down.
    if (move.find("left") != std::string::npos) ptz.pan = std::remainder(ptz.pan - 36, 360.0);
    if (move.find("right") != std::string::npos) ptz.pan = std::remainder(ptz.pan + 36, 360.0);
    if (move.rfind("up", 0) == 0) ptz.tilt = std::min(ptz.tilt + 10, 90.0);
    if (move.rfind("down", 0) == 0) ptz.tilt = std::max(ptz.tilt - 10, -90.0);
    if (*pan) ptz.pan = **pan;
    if (*tilt) ptz.tilt = **tilt;
    if (*zoom) ptz.zoom = **zoom;
    if (*rpan) ptz.pan = std::remainder(ptz.pan + **rpan, 360.0);
    if (*rtilt) ptz.tilt = std::clamp(ptz.tilt + **rtilt, -90.0, 90.0);
    if (*rzoom) ptz.zoom = std::clamp(ptz.zoom + **rzoom, 1.0, 9999.0);
    if (*focus) ptz.focus = static_cast<int>(**focus);
    if (*iris) ptz.iris = static_cast<int>(**iris);
    if (panTiltSpeed) {
      ptz.panSpeed = panTiltSpeed->first;
      ptz.tiltSpeed = panTiltSpeed->second;
    }
    if (zoomSpeed) ptz.zoomSpeed = *zoomSpeed;
    ptz.movedAt = now;
    return std::string();
  });
  if (!problem.empty()) return PtzError(problem);
  return Done();
}

HttpResponse HandlePtzConfig(const HttpRequest& request, EndpointContext& context) {
  if (!context.config.hasPtz) return NotFoundAnswer(request.path);
  const auto params = ParseQuery(request.query);
  auto get = [&](const char* name) { return params.count(name) != 0 ? params.at(name) : std::string(); };
  auto number = [&](const char* name) -> std::optional<int> {
    auto value = ParseNumber(get(name));
    if (!value || *value < 1 || *value > 1000 || *value != std::floor(*value)) return std::nullopt;
    return static_cast<int>(*value);
  };
  const auto now = std::chrono::steady_clock::now();
  if (params.count("setserverpresetno") != 0 || params.count("setserverpresetname") != 0) {
    std::optional<int> wanted;
    if (params.count("setserverpresetno") != 0) {
      wanted = number("setserverpresetno");
      if (!wanted) return PtzError("setserverpresetno is a number 1..1000");
    }
    const std::string name = get("setserverpresetname");
    context.state.Modify([&](StateData& s) {
      SettlePtz(s.ptz, now);
      int slot = wanted.value_or(0);
      if (slot == 0) {  // by name: reuse the name's slot, or the first free one
        for (const auto& [n, preset] : s.ptz.presets) {
          if (preset.name == name) slot = n;
        }
        for (int n = 1; slot == 0; ++n) {
          if (s.ptz.presets.count(n) == 0) slot = n;
        }
      }
      s.ptz.presets[slot] =
          PtzPreset{name.empty() ? "Preset " + std::to_string(slot) : name, s.ptz.pan, s.ptz.tilt, s.ptz.zoom};
    });
    return Done();
  }
  if (params.count("removeserverpresetno") != 0 || params.count("removeserverpresetname") != 0) {
    std::optional<int> wanted;
    if (params.count("removeserverpresetno") != 0) {
      wanted = number("removeserverpresetno");
      if (!wanted) return PtzError("removeserverpresetno is a number 1..1000");
    }
    const std::string name = get("removeserverpresetname");
    const bool removed = context.state.Modify([&](StateData& s) {
      for (auto it = s.ptz.presets.begin(); it != s.ptz.presets.end(); ++it) {
        if ((wanted && it->first == *wanted) || (!wanted && it->second.name == name)) {
          s.ptz.presets.erase(it);
          return true;
        }
      }
      return false;
    });
    if (!removed) return PtzError("no such preset");
    return Done();
  }
  return PtzError("no command given");
}

}  // namespace camsim
