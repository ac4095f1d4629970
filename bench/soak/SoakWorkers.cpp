#include "SoakWorkers.h"

#include <cstring>
#include <ctime>

#include "HostTime.h"
#include "SoakCameras.h"

namespace {

using std::chrono::milliseconds;
using Outcome = SoakLedger::Outcome;

// The bounds an entry point must keep, in seconds. An HTTP request: 10 s to
// connect and 30 s in all; opening RTSP: 10 s to connect and 10 s for each of
// OPTIONS, DESCRIBE, SETUP and PLAY; a playback start does both.
constexpr double kHttpBound = 40;
constexpr double kStopBound = 3;
constexpr double kRtspOpenBound = 50;
constexpr double kRtspRequestBound = 10;
// A stream that delivers nothing this long is dead: 10 s, and slack for a busy machine.
constexpr int64_t kSilenceMs = 15000;
constexpr size_t kPictureBytes = 4 << 20;
constexpr size_t kStatusBytes = 64 << 10;
constexpr uint32_t kPtzControlType = 1;
constexpr uint32_t kPtzLeft = 23;

}  // namespace

bool SoakTables::Find(const PluginLoader& plugin) {
  record = &plugin.Record();
  common = plugin.Query<PluginCommonTable>("common");
  stream = plugin.Query<PluginStreamTable>("stream");
  records = plugin.Query<PluginRecordTable>("record");
  ptz = plugin.Query<PluginPtzTable>("ptz");
  control = plugin.Query<PluginControlTable>("control");
  status = plugin.Query<PluginStatusTable>("status");
  return common && stream && records && ptz && control && status;
}

int32_t StreamSink::OnBlock(void*, int32_t type, const PluginStreamBlock*, void* user) {
  auto* sink = static_cast<StreamSink*>(user);
  if (sink->stopped) {
    ++sink->afterStop;
  } else if (type == PLUGIN_STREAM_END) {
    ++sink->ends;
  } else if (type == PLUGIN_STREAM_DATA) {
    ++sink->data;
    sink->lastData = SteadyMilliseconds();
  }
  return 0;
}

SoakCamera::SoakCamera(const SoakTables& tables, SoakLedger& ledger, SoakGate& gate, int index, std::string address,
                       uint32_t seed)
    : m_tables(tables),
      m_ledger(ledger),
      m_gate(gate),
      m_index(index),
      m_address(std::move(address)),
      m_seed(seed),
      m_picture(new char[kPictureBytes]),
      m_status(new char[kStatusBytes]) {
  if (m_tables.record->CreateInstance(&m_device) != 0) m_device = nullptr;
}

SoakCamera::~SoakCamera() { Close(); }

void SoakCamera::Close() {
  if (m_device == nullptr) return;
  if (m_opened)
    m_ledger.Timed(2 * m_index, "CloseDevice", kStopBound, [&] { return m_tables.common->CloseDevice(m_device); });
  m_ledger.Timed(2 * m_index, "DestroyInstance", kStopBound,
                 [&] { return m_tables.record->DestroyInstance(m_device); });
  m_device = nullptr;
}

StreamSink& SoakCamera::NextSink() {
  StreamSink& sink = m_sinks[m_nextSink++ % m_sinks.size()];
  m_lateBlocks += sink.afterStop.exchange(0);
  sink.ends = 0;
  sink.data = 0;
  sink.lastData = SteadyMilliseconds();
  sink.stopped = false;
  return sink;
}

int SoakCamera::LateBlocks() const {
  int late = m_lateBlocks;
  for (const StreamSink& sink : m_sinks) late += sink.afterStop;
  return late;
}

int32_t SoakCamera::OnAlarm(PluginDeviceHandle, uint32_t, uint32_t, const void*, intptr_t, void* user) {
  ++static_cast<SoakCamera*>(user)->alarms;
  return 0;
}

bool SoakCamera::Open() {
  DeviceLoginParam login{};
  std::strncpy(login.ip, m_address.c_str(), sizeof login.ip - 1);
  login.port = 80;
  std::strncpy(login.user, "root", sizeof login.user - 1);
  std::strncpy(login.password, "pass", sizeof login.password - 1);
  const int worker = 2 * m_index + 1;
  if (m_ledger.Timed(worker, "OpenDevice", kHttpBound, [&] { return m_tables.common->OpenDevice(m_device, &login); }))
    return false;
  m_ledger.Timed(worker, "SetEventCallBack", kStopBound,
                 [&] { return m_tables.control->SetEventCallBack(m_device, &SoakCamera::OnAlarm, this); });
  m_opened = true;
  return true;
}

SoakCamera::Watched SoakCamera::Watch(StreamSink& sink, double seconds, bool pauseOnce) {
  const int64_t start = SteadyMilliseconds();
  const int64_t end = start + static_cast<int64_t>(seconds * 1000);
  int64_t pauseAt = pauseOnce ? start + 3000 : INT64_MAX;
  int64_t quietSince = start;  // silence counts from the later of this and the last block
  while (!m_gate.Wanted()) {
    m_gate.Nap(milliseconds(250));
    const int64_t now = SteadyMilliseconds();
    if (sink.ends > 0) {
      m_gate.Nap(milliseconds(2000));  // long enough to see a second END come
      return Watched::Ended;
    }
    if (now >= pauseAt) {
      pauseAt = INT64_MAX;
      const int worker = 2 * m_index;
      if (m_ledger.Timed(worker, "PauseStream", kRtspRequestBound,
                         [&] { return m_tables.records->PauseStream(m_device); }) == 0) {
        m_gate.Nap(milliseconds(2000));
        // A camera that refused to resume (or never answered) leaves the stream paused, and a paused stream
        // is silent by right: the platform was told, and stops it.
        if (m_ledger.Timed(worker, "ResumeStream", kRtspRequestBound,
                           [&] { return m_tables.records->ResumeStream(m_device); }) != 0)
          return sink.ends > 0 ? Watched::Ended : Watched::ResumeRefused;
      }
      quietSince = SteadyMilliseconds();
      continue;
    }
    if (now - std::max(sink.lastData.load(), quietSince) > kSilenceMs) return Watched::Silent;
    if (now >= end) break;
  }
  return Watched::Delivering;
}

void SoakCamera::Judge(const char* kind, StreamSink& sink, Watched watched, bool severalEndsAllowed) {
  const int ends = sink.ends;
  Outcome outcome = ends > 0 ? Outcome::Ended : Outcome::Delivering;
  if (ends > 1 && !severalEndsAllowed) outcome = Outcome::SeveralEnds;
  if (watched == Watched::ResumeRefused) outcome = Outcome::ResumeRefused;
  if (watched == Watched::Silent && ends == 0) {
    // A link slower than the stream breaks every picture: nothing to deliver, yet the camera is not dead.
    outcome =
        slowRtspUntil > SteadyMilliseconds() - kSilenceMs ? Outcome::SilentUnderSlowLink : Outcome::SilentWithoutEnd;
  }
  m_ledger.Count(kind, outcome);
  if (outcome == Outcome::SeveralEnds || outcome == Outcome::SilentWithoutEnd) {
    m_ledger.Note("camera " + std::to_string(m_index) + " (" + m_address + "): " + kind + " stream " +
                  (outcome == Outcome::SeveralEnds ? "ended with " + std::to_string(ends) + " END blocks"
                                                   : "silent for 15 s without END"));
  }
}

void SoakCamera::Live(std::mt19937& random) {
  StreamSink& sink = NextSink();
  const std::string params = random() % 2 == 0 ? "videoencoding=h264" : "videoencoding=h265";
  PluginStreamRequest request{};
  request.address = m_address.c_str();
  request.port = 80;
  request.user = "root";
  request.password = "pass";
  request.params = params.c_str();
  const int worker = 2 * m_index;
  if (m_ledger.Timed(worker, "StartStream", kRtspOpenBound, [&] {
        return m_tables.stream->StartStream(m_device, &request, &StreamSink::OnBlock, &sink);
      }) != 0) {
    sink.stopped = true;
    m_ledger.Count("live", Outcome::Refused);
    m_gate.Nap(milliseconds(2000));
    return;
  }
  const Watched watched = Watch(sink, std::uniform_int_distribution<int>(15, 60)(random), false);
  m_ledger.Timed(worker, "StopStream", kStopBound, [&] {
    m_tables.stream->StopStream(m_device);
    return 0;
  });
  sink.stopped = true;
  Judge("live", sink, watched, false);
}

void SoakCamera::Playback(std::mt19937& random) {
  // Inside the recording every simulated camera is making (it began 45 minutes before the camera started).
  const int64_t now = static_cast<int64_t>(std::time(nullptr));
  const int64_t from = now - 40 * 60 + std::uniform_int_distribution<int64_t>(0, 30 * 60)(random);
  const int64_t to = from + std::uniform_int_distribution<int64_t>(10, 25)(random);
  StreamSink& sink = NextSink();
  PluginStreamRequest request{};
  request.address = m_address.c_str();
  request.port = 80;
  request.user = "root";
  request.password = "pass";
  request.params = "";
  const PluginZonedTime start = ToZonedTime(from), end = ToZonedTime(to);
  const PluginPlaybackConditionEx condition{&request, &start, &end, 0, 0, 0};
  const int worker = 2 * m_index;
  if (m_ledger.Timed(worker, "StartPlayBackEx", kHttpBound + kRtspOpenBound, [&] {
        return m_tables.records->StartPlayBackEx(m_device, &condition, &StreamSink::OnBlock, &sink);
      }) != 0) {
    sink.stopped = true;
    m_ledger.Count("playback", Outcome::Refused);
    m_gate.Nap(milliseconds(2000));
    return;
  }
  const Watched watched = Watch(sink, static_cast<double>(to - from) + 15, true);
  m_ledger.Timed(worker, "StopPlayBack", kStopBound, [&] {
    m_tables.records->StopPlayBack(m_device);
    return 0;
  });
  sink.stopped = true;
  // Past the end the plug-in repeats END until the platform stops: several are allowed here.
  Judge("playback", sink, watched, true);
}

void SoakCamera::RunStreams() {
  std::mt19937 random(m_seed);
  for (int session = 0; m_gate.Pass();) {
    if (!m_opened) {
      m_gate.Nap(milliseconds(200));
      continue;
    }
    if (session++ % 2 == 0) {
      Live(random);
    } else {
      Playback(random);
    }
  }
}

void SoakCamera::RunControl() {
  std::mt19937 random(m_seed * 7 + 1);
  const int worker = 2 * m_index + 1;
  for (int step = 0; m_gate.Pass();) {
    if (!m_opened) {
      if (!Open()) m_gate.Nap(milliseconds(2000));
      continue;
    }
    const int64_t now = static_cast<int64_t>(std::time(nullptr));
    switch (step++ % 5) {
      case 0: {
        RecordSearchCondition condition{};
        condition.start = ToPluginTime(now - 2 * 86400);
        condition.end = ToPluginTime(now);
        if (m_ledger.Timed(worker, "FindRecordFiles", kHttpBound,
                           [&] { return m_tables.records->FindRecordFiles(m_device, &condition); }) == 0) {
          RecordFileInfo file{};
          for (int i = 0; i < 100 && m_ledger.Timed(worker, "FindNextRecordFile", kStopBound,
                                                    [&] {
                                                      return m_tables.records->FindNextRecordFile(m_device, &file);
                                                    }) == NETCAM_FIND_FILE_WRITTEN;
               ++i) {
          }
        }
        m_ledger.Timed(worker, "CloseFindRecord", kStopBound,
                       [&] { return m_tables.records->CloseFindRecord(m_device); });
        break;
      }
      case 1: {
        // Two plans in turn, so that every write changes the camera's schedule.
        RecordConfigInfo plan{};
        std::memset(plan.halfHours, '0', sizeof plan.halfHours);
        plan.enabled = 1;
        const int day = step / 5 % 2 == 0 ? 1 : 2;
        for (int slot = 16 + 12 * (day - 1); slot < 24 + 12 * (day - 1); ++slot) plan.halfHours[day][slot] = '1';
        m_ledger.Timed(worker, "SetRecordConfig", kHttpBound,
                       [&] { return m_tables.records->SetRecordConfig(m_device, &plan); });
        break;
      }
      case 2: {
        const PtzControlInput start{0, kPtzLeft, 0, 5, 0}, stop{0, kPtzLeft, 1, 5, 0};
        m_ledger.Timed(worker, "PTZControl", kHttpBound,
                       [&] { return m_tables.ptz->PTZControl(m_device, kPtzControlType, &start, sizeof start, 0); });
        m_gate.Nap(milliseconds(300));
        m_ledger.Timed(worker, "PTZControl", kHttpBound,
                       [&] { return m_tables.ptz->PTZControl(m_device, kPtzControlType, &stop, sizeof stop, 0); });
        break;
      }
      case 3:
        m_ledger.Timed(worker, "GetWorkStatus", kHttpBound, [&] {
          return m_tables.status->GetWorkStatus(m_device, m_status.get(), static_cast<int32_t>(kStatusBytes));
        });
        break;
      default: {
        uint32_t size = 0;
        m_ledger.Timed(worker, "CapturePicture", kHttpBound, [&] {
          return m_tables.control->CapturePicture(m_device, 1, 0, m_picture.get(), static_cast<int32_t>(kPictureBytes),
                                                  &size);
        });
        break;
      }
    }
    m_gate.Nap(milliseconds(std::uniform_int_distribution<int>(500, 3000)(random)));
  }
}
