// CameraState.h - everything a camera remembers between requests: recordings,
// action rules and configurations, scheduled events, stream profiles, PTZ,
// NTP and its clock. Guarded by one mutex; saved to the state directory (when
// there is one) after every change so that it survives a restart.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

#include "camera_sim/RtspServer.h"

namespace camsim {

struct EventCondition {
  std::string topicDialect;
  std::string topic;  // e.g. "tns1:VideoSource/tnsaxis:MotionAlarm", prefixes kept as written
  std::string contentDialect;
  std::string content;
};

struct ActionRule {
  int id = 0;
  std::string name;
  bool enabled = true;
  std::vector<EventCondition> conditions;
  int primaryAction = 0;
};

struct ActionParameter {
  std::string name;
  std::string value;
};

struct ActionConfiguration {
  int id = 0;
  std::string name;
  std::string templateToken;
  std::vector<ActionParameter> parameters;
};

struct ScheduledEvent {
  std::string id;  // "com.axis.schedules.genid.idN" for those added through the event service
  std::string name;
  std::string icalendar;
};

struct StreamProfile {
  std::string name;
  std::string description;
  std::string parameters;  // "resolution=1920x1080&fps=25&videocodec=h264"
};

struct PtzPreset {
  std::string name;
  double pan = 0, tilt = 0, zoom = 1;
};

struct PtzState {
  double pan = 0, tilt = 0, zoom = 1;  // degrees, degrees, 1..9999
  int focus = 750, iris = 1000;
  double panSpeed = 0, tiltSpeed = 0, zoomSpeed = 0;  // -100..100 while a continuous move runs
  std::chrono::steady_clock::time_point movedAt{};
  std::map<int, PtzPreset> presets;
};

struct NtpState {
  bool enabled = true;
  std::string serversSource = "static";  // "static" or "DHCP"
  std::vector<std::string> staticServers{"0.pool.ntp.org"};
};

struct StateData {
  std::vector<RecordingClip> recordings;  // stopUtc 0: still recording
  std::vector<ActionRule> rules;
  std::vector<ActionConfiguration> configurations;
  std::vector<ScheduledEvent> events;
  int nextRuleId = 1;
  int nextConfigurationId = 1;
  int nextEventNumber = 1;
  std::vector<StreamProfile> streamProfiles;
  PtzState ptz;
  NtpState ntp;
  int64_t clockOffsetSeconds = 0;  // camera clock minus host clock
  int utcOffsetMinutes = 120;      // the camera's time zone (fixed, no daylight saving)
};

// The state a camera has when it leaves the factory and has been used by
// other tools for a while: a motion-triggered recording, an LED action, the
// standard schedules and stream profiles, and three recordings over the last
// two days (the newest still recording).
StateData DefaultState(const std::string& serial, int64_t nowUtc);

// "20240621_151725_95E7_B8A44F9D7D55": the start time, a tag and the serial.
std::string MakeRecordingId(int64_t startUtc, const std::string& serial, unsigned tag);

// Advances a continuous PTZ move to `now` (positions change while a move runs).
void SettlePtz(PtzState& ptz, std::chrono::steady_clock::time_point now);

class CameraState {
 public:
  CameraState(StateData initial, std::string stateDir);

  // Loads the saved state when the directory holds one; false with `error` when it is unreadable.
  bool Load(std::string* error);

  template <typename F>
  auto Read(F&& reader) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return reader(static_cast<const StateData&>(m_data));
  }

  // Runs `writer` under the lock and saves the result.
  template <typename F>
  auto Modify(F&& writer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if constexpr (std::is_void_v<decltype(writer(m_data))>) {
      writer(m_data);
      SaveLocked();
    } else {
      auto result = writer(m_data);
      SaveLocked();
      return result;
    }
  }

  int64_t CameraNowUtc() const;  // the camera's clock, seconds since 1970

 private:
  void SaveLocked();

  mutable std::mutex m_mutex;
  StateData m_data;
  std::string m_stateDir;
};

}  // namespace camsim
