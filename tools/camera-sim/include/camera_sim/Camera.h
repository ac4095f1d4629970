// Camera.h - a simulated network camera of the maker, in-process.
//
// Tests start one Camera per case on its own loopback address, script answers,
// inject faults and read back the requests it received. The camera-sim
// program wraps the same class.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "camera_sim/Fault.h"
#include "camera_sim/RtspServer.h"  // RecordingClip

namespace camsim {

struct CameraConfig {
  std::string address = "127.0.0.1";  // the camera's own address; HTTP and RTSP bind here only
  uint16_t httpPort = 0;              // 0: an ephemeral port, see Camera::HttpPort()
  uint16_t rtspPort = 554;            // 0: no RTSP server
  std::string user = "root";
  std::string password = "pass";
  std::string brand = "AXIS";
  std::string model = "AXIS P1465-LE";
  std::string productNumber = "P1465-LE";
  std::string serial = "B8A44F9D7D55";
  std::string firmware = "11.11.73";
  bool hasPtz = true;
  std::string eventUrl;           // where motion alarms are posted ("" = none)
  std::string stateDir;           // persistent state ("" = memory only)
  size_t maxBodyBytes = 1 << 20;  // larger request bodies are refused with 413
  // A capture folder (plugin-host capture): the camera serves what the
  // captured camera answered instead of its own answers, under the captured
  // identity. With it, an empty user or password accepts any.
  std::string replayDir;
};

// A request as the camera received it (after authentication succeeded or not).
struct ReceivedRequest {
  std::string method;
  std::string path;                            // without the query
  std::string query;                           // without the '?'
  std::map<std::string, std::string> headers;  // names lower-cased
  std::string body;
  int status = 0;  // what the camera answered
};

// An answer that replaces the camera's own for matching requests.
struct ScriptedAnswer {
  int status = 200;
  std::string contentType = "text/plain";
  std::string body;
  std::map<std::string, std::string> headers;  // e.g. {"Location", "..."} for redirects
};

class Camera {
 public:
  explicit Camera(CameraConfig config);
  ~Camera();  // stops
  Camera(const Camera&) = delete;
  Camera& operator=(const Camera&) = delete;

  // Binds and starts serving. False with `error` filled when a port cannot be
  // bound or the media cannot be prepared.
  bool Start(std::string* error = nullptr);
  void Stop();

  const CameraConfig& Config() const;
  uint16_t HttpPort() const;  // the bound HTTP port

  // Scripting: `pathPrefix` matches a request path that starts with it
  // ("/axis-cgi/basicdeviceinfo.cgi"). The latest matching rule wins.
  void Script(const std::string& pathPrefix, ScriptedAnswer answer);
  // Faults match HTTP paths and RTSP URL paths ("/axis-media/media.amp"; ""
  // for all) on the fault's side. The id switches it off again, at any time
  // (a frozen camera thaws).
  int InjectFault(const std::string& pathPrefix, Fault fault);
  void RemoveFault(int id);
  // Switches `fault` on after `at` and off `length` later (0: it stays on).
  void ScheduleFault(const std::string& pathPrefix, Fault fault, std::chrono::milliseconds at,
                     std::chrono::milliseconds length);
  // Random fault episodes until Stop.
  void StartRandomFaults(RandomFaults plan);
  void ClearScripts();  // answers and faults

  std::vector<ReceivedRequest> Requests() const;
  void ClearRequests();

  // Changes the credentials at run time (e.g. to test a 16-character password).
  void SetCredentials(const std::string& user, const std::string& password);

  // The recording catalogue (record/list.cgi, and the RTSP side's recordings).
  // A clip with stopUtc 0 is still being recorded: it is listed with an empty
  // stop time and plays up to the present.
  void SetRecordings(std::vector<RecordingClip> recordings);
  std::vector<RecordingClip> Recordings() const;

  // Posts one motion alarm to CameraConfig::eventUrl from the camera's own
  // address. False when there is no URL or the post was not answered with 2xx.
  bool PostMotionAlarm();
  // The same to `eventUrl`, for a receiver known only after the camera started.
  bool PostMotionAlarm(const std::string& eventUrl);

  // The bound RTSP port; 0 without an RTSP server.
  uint16_t RtspPort() const;
  // Path and query of every RTSP DESCRIBE the camera received.
  std::vector<std::string> RtspRequests() const;
  // Every RTSP PLAY (with its Range header) and PAUSE the camera received.
  std::vector<std::string> RtspControlRequests() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace camsim
