#include "camera_sim/Camera.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <random>

#include "AlarmPoster.h"
#include "CameraState.h"
#include "DigestAuth.h"
#include "HttpServer.h"
#include "Router.h"
#include "TimeText.h"
#include "camera_sim/FaultSet.h"
#include "evlog.h"
#include "replay/CaptureFolder.h"
#include "replay/ReplayMatcher.h"
#include "replay/ReplayRtsp.h"

namespace camsim {

namespace {

constexpr const char* kLogModule = "camera-sim";
constexpr size_t kMaxLoggedRequests = 10000;  // the program runs for days; tests stay far below

int64_t HostNowUtc() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

HttpResponse UnauthorizedAnswer(const std::string& path, const std::string& challenge) {
  HttpResponse answer =
      TextAnswer(401,
                 "<HTML><HEAD><TITLE>401 Unauthorized</TITLE></HEAD>\n<BODY><H1>401 Unauthorized</H1>\n"
                 "Your client does not have permission to get URL " +
                     path + " from this server.\n</BODY></HTML>\n",
                 "text/html");
  answer.headers["WWW-Authenticate"] = challenge;
  return answer;
}

std::string GarbageBytes() {
  std::mt19937 random(std::random_device{}());
  std::string bytes(512, '\0');
  for (char& c : bytes) c = static_cast<char>(random() & 0xff);
  return bytes;
}

}  // namespace

// The per-request faults of the HTTP side; Freeze and Reset act before
// authentication, as a camera that hangs or drops the line answers nothing.
constexpr std::initializer_list<Fault::Kind> kRequestFaults = {
    Fault::Kind::Status, Fault::Kind::EmptyBody, Fault::Kind::Delay, Fault::Kind::Redirect, Fault::Kind::Garbage,
    Fault::Kind::Huge,   Fault::Kind::Drop,      Fault::Kind::Cut,   Fault::Kind::Slow};

struct Camera::Impl {
  explicit Impl(CameraConfig cfg)
      : config(std::move(cfg)),
        state(DefaultState(config.serial, HostNowUtc()), config.stateDir),
        auth(std::make_unique<DigestAuthenticator>("AXIS_" + config.serial)) {}

  CameraConfig config;
  CameraState state;
  std::unique_ptr<DigestAuthenticator> auth;  // replaced before serving by a replay's realm
  CaptureFolder capture;                      // what a replayed camera answered
  std::unique_ptr<ReplayMatcher> replay;
  std::unique_ptr<ReplayRtspServer> replayRtsp;
  std::unique_ptr<HttpServer> http;
  std::atomic<uint16_t> httpPort{0};  // read by the server's threads (redirects)
#ifdef CAMSIM_HAVE_RTSP
  std::unique_ptr<RtspServer> rtsp;
#endif

  mutable std::mutex credentialsMutex;  // config.user and config.password change at run time
  mutable std::mutex scriptMutex;
  std::vector<std::pair<std::string, ScriptedAnswer>> scripts;
  std::shared_ptr<FaultSet> faults = std::make_shared<FaultSet>();
  FaultSchedule schedule{*faults};
  mutable std::mutex logMutex;
  std::vector<ReceivedRequest> requests;

  std::mutex stopMutex;
  std::condition_variable stopSignal;
  bool stopping = false;

  std::pair<std::string, std::string> Credentials() const {
    std::lock_guard<std::mutex> lock(credentialsMutex);
    return {config.user, config.password};
  }

  std::optional<RecordingClip> FindRecording(const std::string& id) {
    const int64_t now = state.CameraNowUtc();
    return state.Read([&](const StateData& s) -> std::optional<RecordingClip> {
      for (const auto& clip : s.recordings) {
        if (clip.id != id) continue;
        RecordingClip found = clip;
        if (found.stopUtc == 0) found.stopUtc = std::max(now, found.startUtc);
        return found;
      }
      return std::nullopt;
    });
  }

  std::optional<ScriptedAnswer> FindScript(const std::string& path) const {
    std::lock_guard<std::mutex> lock(scriptMutex);
    for (auto it = scripts.rbegin(); it != scripts.rend(); ++it) {
      if (StartsWith(path, it->first)) return it->second;
    }
    return std::nullopt;
  }

  // Waits, but gives up as soon as the camera stops. True when the full delay passed.
  bool Wait(std::chrono::milliseconds delay) {
    std::unique_lock<std::mutex> lock(stopMutex);
    return !stopSignal.wait_for(lock, delay, [&] { return stopping; });
  }

  HttpResponse Respond(HttpRequest& request) {
    if (faults->Any(FaultSide::Http)) {
      HttpResponse unanswered;
      unanswered.drop = !faults->WaitWhileFrozen(FaultSide::Http, request.path);
      unanswered.reset = faults->Take(FaultSide::Http, request.path, {Fault::Kind::Reset}).has_value();
      if (unanswered.drop || unanswered.reset) return unanswered;
    }
    if (request.bodyTooLarge) {
      evlog_write(EVLOG_WARN, kLogModule, "%s %s: body over %zu bytes refused (413)", request.method.c_str(),
                  request.path.c_str(), config.maxBodyBytes);
      return TextAnswer(413,
                        "<HTML><HEAD><TITLE>413 Request Entity Too Large</TITLE></HEAD>\n"
                        "<BODY><H1>413 Request Entity Too Large</H1>\n</BODY></HTML>\n",
                        "text/html");
    }
    if (NeedsAuthentication(request.path)) {
      const auto [user, password] = Credentials();
      const DigestVerdict verdict =
          replay ? auth->VerifyKnown(request.method, request.path, request.Header("authorization"), user, password)
                 : auth->Verify(request.method, request.path, request.Header("authorization"), user, password);
      if (verdict != DigestVerdict::Accepted) {
        // A missing header is the first leg of every Digest exchange; anything else is worth a line.
        if (verdict != DigestVerdict::Missing) {
          evlog_write(EVLOG_INFO, kLogModule, "%s %s: authentication refused (%s)", request.method.c_str(),
                      request.path.c_str(), ToString(verdict));
        }
        const bool stale = verdict == DigestVerdict::StaleNonce || verdict == DigestVerdict::UnknownNonce;
        return UnauthorizedAnswer(request.path, auth->Challenge(stale));
      }
    }

    std::optional<Fault> shaping;  // a fault that changes how the normal answer is sent
    if (auto fault = faults->Take(FaultSide::Http, request.path, kRequestFaults)) {
      switch (fault->kind) {
        case Fault::Kind::Status:
          return TextAnswer(fault->status, fault->body);
        case Fault::Kind::EmptyBody:
          return TextAnswer(200, "");
        case Fault::Kind::Delay:
          if (!Wait(fault->delay)) {
            HttpResponse dropped;
            dropped.drop = true;
            return dropped;
          }
          break;  // then the normal answer
        case Fault::Kind::Redirect: {
          HttpResponse answer = TextAnswer(302, "", "text/html");
          answer.headers["Location"] =
              StartsWith(fault->location, "/")
                  ? "http://" + config.address + ":" + std::to_string(httpPort.load()) + fault->location
                  : fault->location;
          return answer;
        }
        case Fault::Kind::Garbage:
          return TextAnswer(200, fault->body.empty() ? GarbageBytes() : fault->body, "application/octet-stream");
        case Fault::Kind::Huge: {
          HttpResponse answer = TextAnswer(200, "");
          answer.fillerBytes = fault->size;
          return answer;
        }
        case Fault::Kind::Drop: {
          HttpResponse dropped;
          dropped.drop = true;
          return dropped;
        }
        case Fault::Kind::Cut:
        case Fault::Kind::Slow:
          shaping = fault;
          break;
        case Fault::Kind::Freeze:
        case Fault::Kind::Reset:
          break;  // taken before authentication
      }
    }
    HttpResponse answer = NormalAnswer(request);
    if (shaping && shaping->kind == Fault::Kind::Slow) answer.bytesPerSecond = shaping->bytesPerSecond;
    if (shaping && shaping->kind == Fault::Kind::Cut) {
      answer.cutAfter = (answer.fillerBytes > 0 ? answer.fillerBytes : answer.body.size()) / 2;
    }
    return answer;
  }

  HttpResponse NormalAnswer(HttpRequest& request) {
    if (auto script = FindScript(request.path)) {
      HttpResponse answer = TextAnswer(script->status, script->body, script->contentType);
      answer.headers = script->headers;
      return answer;
    }
    if (IsControlPath(request.path)) return ControlAnswer(request);
    if (replay) return ReplayAnswer(request);
    if (EndpointHandler handler = FindEndpoint(request.path)) {
      EndpointContext context{config, state};
      return handler(request, context);
    }
    return NotFoundAnswer(request.path);
  }

  // What the captured camera answered to this operation; the 404 of an unknown
  // CGI for one it was never asked, said once in the log so that a developer
  // sees what the capture lacks.
  HttpResponse ReplayAnswer(const HttpRequest& request) {
    bool firstMiss = false;
    const ReplayExchange* captured =
        replay->Match(request.method, request.path, request.query, request.body, &firstMiss);
    if (captured == nullptr) {
      if (firstMiss) {
        evlog_write(EVLOG_WARN, kLogModule, "replay: %s %s%s%s was never captured; answered 404",
                    request.method.c_str(), request.path.c_str(), request.query.empty() ? "" : "?",
                    request.query.c_str());
      }
      return NotFoundAnswer(request.path);
    }
    HttpResponse answer;
    if (captured->status == 0) {
      answer.drop = true;  // the camera gave no answer then either
      return answer;
    }
    answer.status = captured->status;
    answer.body = captured->answerBody;
    answer.contentType.clear();
    for (const auto& [name, value] : captured->answerHeaders) {
      if (ToLower(name) == "content-type") {
        answer.contentType = value;
      } else if (ToLower(name) != "www-authenticate") {
        answer.headers[name] = value;
      }
    }
    return answer;
  }

  // Takes the capture's identity and realm before anything is served.
  bool LoadReplay(std::string* error) {
    if (!LoadCaptureFolder(config.replayDir, &capture, error)) {
      *error = config.replayDir + "/" + *error;
      return false;
    }
    const CapturedIdentity& identity = capture.identity;
    for (auto [field, value] : {std::pair{&config.brand, &identity.brand},
                                {&config.model, &identity.model},
                                {&config.productNumber, &identity.productNumber},
                                {&config.serial, &identity.serial},
                                {&config.firmware, &identity.firmware}}) {
      if (!value->empty()) *field = *value;
    }
    auth = std::make_unique<DigestAuthenticator>(identity.realm.empty() ? "AXIS_" + config.serial : identity.realm);
    replay = std::make_unique<ReplayMatcher>(capture.exchanges);
    evlog_write(EVLOG_INFO, kLogModule, "replaying %s: %s %s, %zu HTTP exchange(s), %zu RTSP session(s)",
                config.replayDir.c_str(), config.model.c_str(), config.serial.c_str(), capture.exchanges.size(),
                capture.sessions.size());
    return true;
  }

  bool PostMotionAlarm(const std::string& eventUrl) {
    if (eventUrl.empty()) {
      evlog_write(EVLOG_WARN, kLogModule, "no event URL configured; motion alarm not posted");
      return false;
    }
    const int64_t now = state.CameraNowUtc();
    const std::string body =
        "Motion detected on " + config.model + " " + config.serial + " camera=1 time=" + FormatUtc(now, 0) + "\r\n";
    std::string error;
    if (!PostAlarm(eventUrl, config.address, body, &error)) {
      evlog_write(EVLOG_WARN, kLogModule, "motion alarm to %s failed: %s", RedactUrl(eventUrl).c_str(), error.c_str());
      return false;
    }
    evlog_write(EVLOG_INFO, kLogModule, "motion alarm posted to %s", RedactUrl(eventUrl).c_str());
    return true;
  }

  // The simulator's own requests, beside the camera's: a host that cannot hold
  // the simulator in its process (plugin-host on Windows) has it post alarms.
  HttpResponse ControlAnswer(const HttpRequest& request) {
    if (request.path != kAlarmControlPath) return NotFoundAnswer(request.path);
    if (request.method == "GET") {
      return TextAnswer(200, "camera-sim: POST an event URL here and this camera posts one motion alarm to it\r\n");
    }
    if (request.method != "POST") return TextAnswer(405, "GET or POST\r\n");
    std::string eventUrl = request.body;
    eventUrl.erase(eventUrl.find_last_not_of(" \t\r\n") + 1);
    if (eventUrl.rfind("http://", 0) != 0) return TextAnswer(400, "the body must be an http:// event URL\r\n");
    return PostMotionAlarm(eventUrl) ? TextAnswer(200, "posted\r\n")
                                     : TextAnswer(502, "the alarm was not answered with 2xx\r\n");
  }

  HttpResponse Handle(HttpRequest& request) {
    HttpResponse answer = Respond(request);
    ReceivedRequest received;
    received.method = request.method;
    received.path = request.path;
    received.query = request.query;
    received.headers = request.headers;
    received.body = request.body;
    received.status = answer.drop || answer.reset ? 0 : answer.status;
    std::lock_guard<std::mutex> lock(logMutex);
    if (requests.size() >= kMaxLoggedRequests) requests.erase(requests.begin());
    requests.push_back(std::move(received));
    return answer;
  }
};

Camera::Camera(CameraConfig config) : m_impl(std::make_unique<Impl>(std::move(config))) {}

Camera::~Camera() { Stop(); }

bool Camera::Start(std::string* error) {
  if (m_impl->http) return true;
  auto fail = [&](const std::string& message) {
    if (error != nullptr) *error = message;
    evlog_write(EVLOG_ERROR, kLogModule, "%s", message.c_str());
    return false;
  };
  {
    std::lock_guard<std::mutex> lock(m_impl->stopMutex);
    m_impl->stopping = false;
  }
  m_impl->faults->SetInterrupted(false);
  const CameraConfig& config = m_impl->config;
  if (!config.stateDir.empty()) {
    std::error_code ec;
    std::filesystem::create_directories(config.stateDir, ec);
    if (ec) return fail("cannot create the state directory " + config.stateDir + ": " + ec.message());
    std::string loadError;
    if (!m_impl->state.Load(&loadError)) return fail(loadError);
  }

  if (!config.replayDir.empty() && !m_impl->replay) {
    std::string replayError;
    if (!m_impl->LoadReplay(&replayError)) return fail(replayError);
  }

  HttpServer::Options options;
  options.address = config.address;
  options.port = config.httpPort;
  options.maxBodyBytes = config.maxBodyBytes;
  Impl* impl = m_impl.get();
  auto server = std::make_unique<HttpServer>(options, [impl](HttpRequest& request) { return impl->Handle(request); });
  std::string httpError;
  if (!server->Start(&httpError)) {
    if (error != nullptr) *error = "HTTP: " + httpError;
    return false;
  }
  m_impl->httpPort = server->Port();
  m_impl->http = std::move(server);

  if (config.rtspPort != 0 && m_impl->replay) {
    const auto [user, password] = m_impl->Credentials();
    auto rtsp = std::make_unique<ReplayRtspServer>(m_impl->capture.sessions, m_impl->auth->Realm(), user, password);
    std::string rtspError;
    if (!rtsp->Start(config.address, config.rtspPort, &rtspError)) {
      m_impl->http->Stop();
      m_impl->http.reset();
      if (error != nullptr) *error = "RTSP: " + rtspError;
      return false;
    }
    m_impl->replayRtsp = std::move(rtsp);
  } else if (config.rtspPort != 0) {
#ifdef CAMSIM_HAVE_RTSP
    const auto [user, password] = m_impl->Credentials();
    RtspConfig rtspConfig;
    rtspConfig.address = config.address;
    rtspConfig.port = config.rtspPort;
    rtspConfig.user = user;
    rtspConfig.password = password;
    rtspConfig.serial = config.serial;
    rtspConfig.findRecording = [impl](const std::string& id) { return impl->FindRecording(id); };
    rtspConfig.faults = m_impl->faults;
    auto rtsp = std::make_unique<RtspServer>(rtspConfig);
    std::string rtspError;
    if (!rtsp->Start(&rtspError)) {
      m_impl->http->Stop();
      m_impl->http.reset();
      if (error != nullptr) *error = "RTSP: " + rtspError;
      return false;
    }
    m_impl->rtsp = std::move(rtsp);
#else
    evlog_write(EVLOG_WARN, kLogModule, "built without the RTSP server; RTSP port %u is not served",
                static_cast<unsigned>(config.rtspPort));
#endif
  }
  evlog_write(EVLOG_INFO, kLogModule, "camera %s (%s) serving HTTP on %s:%u", config.serial.c_str(),
              config.model.c_str(), config.address.c_str(), static_cast<unsigned>(HttpPort()));
  return true;
}

void Camera::Stop() {
  {
    std::lock_guard<std::mutex> lock(m_impl->stopMutex);
    m_impl->stopping = true;
  }
  m_impl->stopSignal.notify_all();
  m_impl->schedule.Stop();
  m_impl->faults->SetInterrupted(true);  // frozen requests give up
  m_impl->replayRtsp.reset();
#ifdef CAMSIM_HAVE_RTSP
  if (m_impl->rtsp) {
    m_impl->rtsp->Stop();
    m_impl->rtsp.reset();
  }
#endif
  if (m_impl->http) {
    m_impl->http->Stop();
    m_impl->http.reset();
  }
}

const CameraConfig& Camera::Config() const { return m_impl->config; }

uint16_t Camera::HttpPort() const { return m_impl->http ? m_impl->http->Port() : 0; }

std::vector<std::string> Camera::RtspRequests() const {
#ifdef CAMSIM_HAVE_RTSP
  if (m_impl->rtsp) return m_impl->rtsp->DescribedUrls();
#endif
  return {};
}

std::vector<std::string> Camera::RtspControlRequests() const {
#ifdef CAMSIM_HAVE_RTSP
  if (m_impl->rtsp) return m_impl->rtsp->ControlRequests();
#endif
  return {};
}

uint16_t Camera::RtspPort() const {
  if (m_impl->replayRtsp) return m_impl->replayRtsp->Port();
#ifdef CAMSIM_HAVE_RTSP
  return m_impl->rtsp ? m_impl->rtsp->Port() : 0;
#else
  return 0;
#endif
}

void Camera::Script(const std::string& pathPrefix, ScriptedAnswer answer) {
  std::lock_guard<std::mutex> lock(m_impl->scriptMutex);
  m_impl->scripts.emplace_back(pathPrefix, std::move(answer));
}

int Camera::InjectFault(const std::string& pathPrefix, Fault fault) {
  return m_impl->faults->Add(pathPrefix, std::move(fault));
}

void Camera::RemoveFault(int id) { m_impl->faults->Remove(id); }

void Camera::ScheduleFault(const std::string& pathPrefix, Fault fault, std::chrono::milliseconds at,
                           std::chrono::milliseconds length) {
  m_impl->schedule.At(pathPrefix, std::move(fault), at, length);
}

void Camera::StartRandomFaults(RandomFaults plan) {
  plan.onEpisode = [serial = m_impl->config.serial, told = std::move(plan.onEpisode)](const FaultEpisode& episode,
                                                                                      bool ended) {
    evlog_write(EVLOG_INFO, kLogModule, "camera %s: fault %s %s", serial.c_str(), episode.Describe().c_str(),
                ended ? "ends" : "begins");
    if (told) told(episode, ended);
  };
  m_impl->schedule.Random(std::move(plan));
}

void Camera::ClearScripts() {
  {
    std::lock_guard<std::mutex> lock(m_impl->scriptMutex);
    m_impl->scripts.clear();
  }
  m_impl->faults->Clear();
}

std::vector<ReceivedRequest> Camera::Requests() const {
  std::lock_guard<std::mutex> lock(m_impl->logMutex);
  return m_impl->requests;
}

void Camera::ClearRequests() {
  std::lock_guard<std::mutex> lock(m_impl->logMutex);
  m_impl->requests.clear();
}

void Camera::SetCredentials(const std::string& user, const std::string& password) {
  std::lock_guard<std::mutex> lock(m_impl->credentialsMutex);
  m_impl->config.user = user;
  m_impl->config.password = password;
}

void Camera::SetRecordings(std::vector<RecordingClip> recordings) {
  m_impl->state.Modify([&](StateData& s) { s.recordings = std::move(recordings); });
}

std::vector<RecordingClip> Camera::Recordings() const {
  return m_impl->state.Read([](const StateData& s) { return s.recordings; });
}

bool Camera::PostMotionAlarm() { return PostMotionAlarm(m_impl->config.eventUrl); }

bool Camera::PostMotionAlarm(const std::string& eventUrl) { return m_impl->PostMotionAlarm(eventUrl); }

}  // namespace camsim
