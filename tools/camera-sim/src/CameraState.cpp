#include "CameraState.h"

#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "TimeText.h"
#include "evlog.h"

namespace camsim {

namespace {

constexpr const char* kLogModule = "camera-sim";
constexpr const char* kMotionTopic = "tns1:VideoSource/tnsaxis:MotionAlarm";
constexpr const char* kConcreteDialect = "http://docs.oasis-open.org/wsn/t-1/TopicExpression/Concrete";
constexpr const char* kItemFilterDialect = "http://www.onvif.org/ver10/tev/messageContentFilter/ItemFilter";

EventCondition MotionCondition() {
  return EventCondition{kConcreteDialect, kMotionTopic, kItemFilterDialect,
                        "boolean(//SimpleItem[@Name=\"window\" and @Value=\"0\"]) and "
                        "boolean(//SimpleItem[@Name=\"motion\" and @Value=\"1\"])"};
}

std::string StateFile(const std::string& dir) { return dir + "/camera-state.json"; }

using Writer = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

void WriteString(Writer& w, const char* key, const std::string& value) {
  w.Key(key);
  w.String(value.c_str(), static_cast<rapidjson::SizeType>(value.size()));
}

std::string GetString(const rapidjson::Value& object, const char* key) {
  auto it = object.FindMember(key);
  return it != object.MemberEnd() && it->value.IsString() ? it->value.GetString() : std::string();
}

template <typename T>
T GetNumber(const rapidjson::Value& object, const char* key, T fallback) {
  auto it = object.FindMember(key);
  if (it == object.MemberEnd() || !it->value.IsNumber()) return fallback;
  return static_cast<T>(it->value.GetDouble());
}

const rapidjson::Value* GetArray(const rapidjson::Value& object, const char* key) {
  auto it = object.FindMember(key);
  return it != object.MemberEnd() && it->value.IsArray() ? &it->value : nullptr;
}

}  // namespace

std::string MakeRecordingId(int64_t startUtc, const std::string& serial, unsigned tag) {
  CivilTime t = CivilFromUnix(startUtc);
  char text[96];
  std::snprintf(text, sizeof(text), "%04d%02d%02d_%02d%02d%02d_%04X_", t.year, t.month, t.day, t.hour, t.minute,
                t.second, tag & 0xffffu);
  return text + serial;
}

StateData DefaultState(const std::string& serial, int64_t nowUtc) {
  StateData state;
  auto addRecording = [&](int64_t start, int64_t stop, unsigned tag) {
    state.recordings.push_back(RecordingClip{MakeRecordingId(start, serial, tag), start, stop, "h264"});
  };
  addRecording(nowUtc - 40 * 3600, nowUtc - 39 * 3600, 0x95E7);
  addRecording(nowUtc - 20 * 3600, nowUtc - 18 * 3600 - 1800, 0x3A41);
  addRecording(nowUtc - 45 * 60, 0, 0xC20D);

  state.configurations.push_back(ActionConfiguration{1,
                                                     "Record video while motion",
                                                     "com.axis.action.fixed.recording.storage",
                                                     {{"stream_options", "videocodec=h264&resolution=1920x1080"},
                                                      {"pre_duration", "3000"},
                                                      {"post_duration", "5000"},
                                                      {"storage_id", "SD_DISK"}}});
  state.configurations.push_back(
      ActionConfiguration{2,
                          "Flash status LED",
                          "com.axis.action.fixed.ledcontrol",
                          {{"led", "statusled"}, {"color", "red,none"}, {"interval", "250"}, {"duration", "10"}}});
  state.nextConfigurationId = 3;
  state.rules.push_back(ActionRule{1, "Motion recording", true, {MotionCondition()}, 1});
  state.rules.push_back(ActionRule{2, "Status LED on motion", true, {MotionCondition()}, 2});
  state.nextRuleId = 3;

  state.events.push_back(ScheduledEvent{"com.axis.schedules.office_hours", "Office Hours",
                                        "DTSTART:19700105T080000\nDTEND:19700105T170000\n"
                                        "RRULE:FREQ=WEEKLY;BYDAY=MO,TU,WE,TH,FR"});
  state.events.push_back(ScheduledEvent{"com.axis.schedules.weekends", "Weekends",
                                        "DTSTART:19700103T000000\nDTEND:19700105T000000\nRRULE:FREQ=WEEKLY"});

  state.streamProfiles = {
      {"Quality", "Best image quality and full frame rate.", "videocodec=h264&resolution=1920x1080&fps=25"},
      {"Balanced", "Medium image quality and frame rate.", "videocodec=h264&resolution=1280x720&fps=15&compression=40"},
      {"Bandwidth", "Low bandwidth with medium image quality.", "videocodec=h265&resolution=1920x1080&fps=25"},
      {"Mobile", "Mobile device settings.", "videocodec=h264&resolution=640x360&fps=15&compression=50"},
  };
  return state;
}

void SettlePtz(PtzState& ptz, std::chrono::steady_clock::time_point now) {
  if (ptz.panSpeed == 0 && ptz.tiltSpeed == 0 && ptz.zoomSpeed == 0) {
    ptz.movedAt = now;
    return;
  }
  const double seconds = std::chrono::duration<double>(now - ptz.movedAt).count();
  ptz.movedAt = now;
  if (seconds <= 0) return;
  // Full speed (100) turns 90 degrees and zooms 2000 steps a second.
  ptz.pan += ptz.panSpeed * 0.9 * seconds;
  while (ptz.pan > 180) ptz.pan -= 360;
  while (ptz.pan < -180) ptz.pan += 360;
  ptz.tilt = std::clamp(ptz.tilt + ptz.tiltSpeed * 0.9 * seconds, -90.0, 90.0);
  ptz.zoom = std::clamp(ptz.zoom + ptz.zoomSpeed * 20 * seconds, 1.0, 9999.0);
}

CameraState::CameraState(StateData initial, std::string stateDir)
    : m_data(std::move(initial)), m_stateDir(std::move(stateDir)) {}

int64_t CameraState::CameraNowUtc() const {
  const int64_t host =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
  std::lock_guard<std::mutex> lock(m_mutex);
  return host + m_data.clockOffsetSeconds;
}

bool CameraState::Load(std::string* error) {
  if (m_stateDir.empty()) return true;
  std::ifstream in(StateFile(m_stateDir), std::ios::binary);
  if (!in) return true;  // first start: the defaults stay
  std::stringstream buffer;
  buffer << in.rdbuf();
  const std::string text = buffer.str();
  rapidjson::Document doc;
  doc.Parse(text.c_str(), text.size());
  if (doc.HasParseError() || !doc.IsObject()) {
    if (error != nullptr) *error = "state file " + StateFile(m_stateDir) + " is not valid JSON";
    return false;
  }

  std::lock_guard<std::mutex> lock(m_mutex);
  StateData& s = m_data;
  if (auto* rules = GetArray(doc, "rules")) {
    s.rules.clear();
    for (const auto& r : rules->GetArray()) {
      if (!r.IsObject()) continue;
      ActionRule rule;
      rule.id = GetNumber(r, "id", 0);
      rule.name = GetString(r, "name");
      rule.enabled = GetNumber(r, "enabled", 1) != 0;
      rule.primaryAction = GetNumber(r, "primaryAction", 0);
      if (auto* conditions = GetArray(r, "conditions")) {
        for (const auto& c : conditions->GetArray()) {
          if (!c.IsObject()) continue;
          rule.conditions.push_back(EventCondition{GetString(c, "topicDialect"), GetString(c, "topic"),
                                                   GetString(c, "contentDialect"), GetString(c, "content")});
        }
      }
      s.rules.push_back(std::move(rule));
    }
  }
  if (auto* configurations = GetArray(doc, "configurations")) {
    s.configurations.clear();
    for (const auto& c : configurations->GetArray()) {
      if (!c.IsObject()) continue;
      ActionConfiguration configuration;
      configuration.id = GetNumber(c, "id", 0);
      configuration.name = GetString(c, "name");
      configuration.templateToken = GetString(c, "template");
      if (auto* parameters = GetArray(c, "parameters")) {
        for (const auto& p : parameters->GetArray()) {
          if (p.IsObject()) configuration.parameters.push_back({GetString(p, "name"), GetString(p, "value")});
        }
      }
      s.configurations.push_back(std::move(configuration));
    }
  }
  if (auto* events = GetArray(doc, "events")) {
    s.events.clear();
    for (const auto& e : events->GetArray()) {
      if (e.IsObject()) s.events.push_back({GetString(e, "id"), GetString(e, "name"), GetString(e, "icalendar")});
    }
  }
  if (auto* profiles = GetArray(doc, "streamProfiles")) {
    s.streamProfiles.clear();
    for (const auto& p : profiles->GetArray()) {
      if (p.IsObject()) {
        s.streamProfiles.push_back({GetString(p, "name"), GetString(p, "description"), GetString(p, "parameters")});
      }
    }
  }
  if (auto* presets = GetArray(doc, "presets")) {
    s.ptz.presets.clear();
    for (const auto& p : presets->GetArray()) {
      if (!p.IsObject()) continue;
      s.ptz.presets[GetNumber(p, "number", 0)] = PtzPreset{GetString(p, "name"), GetNumber(p, "pan", 0.0),
                                                           GetNumber(p, "tilt", 0.0), GetNumber(p, "zoom", 1.0)};
    }
  }
  s.nextRuleId = std::max(GetNumber(doc, "nextRuleId", s.nextRuleId), 1);
  s.nextConfigurationId = std::max(GetNumber(doc, "nextConfigurationId", s.nextConfigurationId), 1);
  s.nextEventNumber = std::max(GetNumber(doc, "nextEventNumber", s.nextEventNumber), 1);
  s.ptz.pan = GetNumber(doc, "pan", s.ptz.pan);
  s.ptz.tilt = GetNumber(doc, "tilt", s.ptz.tilt);
  s.ptz.zoom = GetNumber(doc, "zoom", s.ptz.zoom);
  auto ntp = doc.FindMember("ntp");
  if (ntp != doc.MemberEnd() && ntp->value.IsObject()) {
    s.ntp.enabled = GetNumber(ntp->value, "enabled", 1) != 0;
    s.ntp.serversSource = GetString(ntp->value, "serversSource");
    s.ntp.staticServers.clear();
    if (auto* servers = GetArray(ntp->value, "staticServers")) {
      for (const auto& server : servers->GetArray()) {
        if (server.IsString()) s.ntp.staticServers.push_back(server.GetString());
      }
    }
  }
  s.clockOffsetSeconds = GetNumber<int64_t>(doc, "clockOffsetSeconds", 0);
  return true;
}

void CameraState::SaveLocked() {
  if (m_stateDir.empty()) return;
  const StateData& s = m_data;
  rapidjson::StringBuffer buffer;
  Writer w(buffer);
  w.StartObject();
  w.Key("rules");
  w.StartArray();
  for (const auto& rule : s.rules) {
    w.StartObject();
    w.Key("id");
    w.Int(rule.id);
    WriteString(w, "name", rule.name);
    w.Key("enabled");
    w.Int(rule.enabled ? 1 : 0);
    w.Key("primaryAction");
    w.Int(rule.primaryAction);
    w.Key("conditions");
    w.StartArray();
    for (const auto& c : rule.conditions) {
      w.StartObject();
      WriteString(w, "topicDialect", c.topicDialect);
      WriteString(w, "topic", c.topic);
      WriteString(w, "contentDialect", c.contentDialect);
      WriteString(w, "content", c.content);
      w.EndObject();
    }
    w.EndArray();
    w.EndObject();
  }
  w.EndArray();
  w.Key("configurations");
  w.StartArray();
  for (const auto& c : s.configurations) {
    w.StartObject();
    w.Key("id");
    w.Int(c.id);
    WriteString(w, "name", c.name);
    WriteString(w, "template", c.templateToken);
    w.Key("parameters");
    w.StartArray();
    for (const auto& p : c.parameters) {
      w.StartObject();
      WriteString(w, "name", p.name);
      WriteString(w, "value", p.value);
      w.EndObject();
    }
    w.EndArray();
    w.EndObject();
  }
  w.EndArray();
  w.Key("events");
  w.StartArray();
  for (const auto& e : s.events) {
    w.StartObject();
    WriteString(w, "id", e.id);
    WriteString(w, "name", e.name);
    WriteString(w, "icalendar", e.icalendar);
    w.EndObject();
  }
  w.EndArray();
  w.Key("streamProfiles");
  w.StartArray();
  for (const auto& p : s.streamProfiles) {
    w.StartObject();
    WriteString(w, "name", p.name);
    WriteString(w, "description", p.description);
    WriteString(w, "parameters", p.parameters);
    w.EndObject();
  }
  w.EndArray();
  w.Key("presets");
  w.StartArray();
  for (const auto& [number, preset] : s.ptz.presets) {
    w.StartObject();
    w.Key("number");
    w.Int(number);
    WriteString(w, "name", preset.name);
    w.Key("pan");
    w.Double(preset.pan);
    w.Key("tilt");
    w.Double(preset.tilt);
    w.Key("zoom");
    w.Double(preset.zoom);
    w.EndObject();
  }
  w.EndArray();
  w.Key("nextRuleId");
  w.Int(s.nextRuleId);
  w.Key("nextConfigurationId");
  w.Int(s.nextConfigurationId);
  w.Key("nextEventNumber");
  w.Int(s.nextEventNumber);
  w.Key("pan");
  w.Double(s.ptz.pan);
  w.Key("tilt");
  w.Double(s.ptz.tilt);
  w.Key("zoom");
  w.Double(s.ptz.zoom);
  w.Key("ntp");
  w.StartObject();
  w.Key("enabled");
  w.Int(s.ntp.enabled ? 1 : 0);
  WriteString(w, "serversSource", s.ntp.serversSource);
  w.Key("staticServers");
  w.StartArray();
  for (const auto& server : s.ntp.staticServers) w.String(server.c_str());
  w.EndArray();
  w.EndObject();
  w.Key("clockOffsetSeconds");
  w.Int64(s.clockOffsetSeconds);
  w.EndObject();

  // Write then rename, so that a crash never leaves half a file behind.
  const std::string path = StateFile(m_stateDir);
  const std::string temporary = path + ".tmp";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out.write(buffer.GetString(), static_cast<std::streamsize>(buffer.GetSize()));
    if (!out) {
      evlog_write(EVLOG_ERROR, kLogModule, "cannot write the state file %s", temporary.c_str());
      return;
    }
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    evlog_write(EVLOG_ERROR, kLogModule, "cannot replace the state file %s", path.c_str());
  }
}

}  // namespace camsim
