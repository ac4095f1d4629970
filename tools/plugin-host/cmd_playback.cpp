// plugin-host playback: plays a span of the camera's recordings into a file
// (an MPEG-2 Program Stream any player opens) with a progress line; on a
// terminal, space pauses and resumes and q stops.
//   playback [--from T --to T] [--output FILE.mpg]
// Without a span it plays the first seconds of the newest recording of the last 7 days.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "HostCommand.h"
#include "HostRecordings.h"
#include "HostSystem.h"
#include "HostTime.h"
#include "StreamFileSink.h"

namespace {

constexpr int64_t kDefaultSearch = 7 * 86400;
constexpr int64_t kDefaultSeconds = 5;
// A camera that never ends the stream is stopped this long after the span's length.
constexpr double kGraceSeconds = 10.0;

std::atomic<bool> g_interrupted{false};

void OnInterrupt(int) { g_interrupted = true; }

// The span to play: as given, or the first seconds of the newest recording.
// 0, or the exit code with the reason given to context.Fail.
int ChooseSpan(HostContext& context, PluginDeviceHandle device, int64_t& from, int64_t& to) {
  const bool hasFrom = context.options.count("from") != 0, hasTo = context.options.count("to") != 0;
  if (hasFrom || hasTo) {
    if (!hasFrom || !hasTo || !ParseIsoUtc(context.Option("from", ""), &from) ||
        !ParseIsoUtc(context.Option("to", ""), &to) || to <= from) {
      return context.Fail(64, "playback: --from T --to T, ISO 8601 UTC times (2024-06-21T15:17:00Z), from < to");
    }
    return 0;
  }
  const int64_t now = static_cast<int64_t>(std::time(nullptr));
  std::vector<FoundRecording> found;
  if (!FindRecordings(context, device, now - kDefaultSearch, now, found)) return 3;
  if (found.empty()) return context.Fail(3, "the camera holds no recording of the last 7 days to play");
  from = found.back().start;
  to = from + kDefaultSeconds;
  return 0;
}

int RunPlayback(HostContext& context) {
  const std::string output = context.Option("output", "playback.mpg");
  const auto* record = context.plugin.Query<PluginRecordTable>("record");
  if (record == nullptr) return context.Fail(1, "the plug-in has no \"record\" table");
  DeviceInstance device(context.plugin);
  if (device.Handle() == nullptr) return context.Fail(1, "the plug-in could not create a device object");
  if (!OpenCamera(context, device.Handle())) return 2;
  const auto* common = context.plugin.Query<PluginCommonTable>("common");
  int64_t from = 0, to = 0;
  if (const int refused = ChooseSpan(context, device.Handle(), from, to); refused != 0) {
    common->CloseDevice(device.Handle());
    return refused;
  }
  StreamFileSink sink;
  sink.file = std::fopen(output.c_str(), "wb");
  if (sink.file == nullptr) return context.Fail(73, "cannot write %s", output.c_str());

  PluginStreamRequest request{};
  request.address = context.camera.host.c_str();
  request.port = context.camera.httpPort;
  request.user = context.camera.user.c_str();
  request.password = context.camera.password.c_str();
  request.params = "";
  const PluginZonedTime start = ToZonedTime(from), end = ToZonedTime(to);
  const PluginPlaybackConditionEx condition{&request, &start, &end, 0, 0, 0};
  std::printf("playing %s to %s UTC into %s\n", FormatUtc(from).c_str(), FormatUtc(to).c_str(), output.c_str());

  g_interrupted = false;
  auto previousInt = std::signal(SIGINT, OnInterrupt);
  auto previousTerm = std::signal(SIGTERM, OnInterrupt);
  int exitCode = 0;
  const int32_t result = record->StartPlayBackEx(device.Handle(), &condition, &StreamFileSink::OnBlock, &sink);
  if (result != 0) {
    exitCode = context.Fail(3, "StartPlayBackEx returned %d; the plug-in's log says why", result);
  } else {
    const bool terminal = StandardOutputIsTerminal();
    KeyboardInput keys;
    if (keys.Active()) std::printf("space pauses and resumes, q stops\n");
    bool paused = false, quit = false;
    double played = 0;  // seconds of the span played, pauses left out
    auto last = std::chrono::steady_clock::now(), lastProgress = last;
    const double limit = static_cast<double>(to - from) + kGraceSeconds;
    while (!g_interrupted && !quit && sink.endBlocks == 0 && played < limit) {
      const char key = keys.Key(100);
      const auto now = std::chrono::steady_clock::now();
      if (!paused) played += std::chrono::duration<double>(now - last).count();
      last = now;
      if (key == 'q' || key == 'Q') quit = true;
      if (key == ' ') {
        const int32_t changed = paused ? record->ResumeStream(device.Handle()) : record->PauseStream(device.Handle());
        if (changed == 0) paused = !paused;
      }
      if (now - lastProgress >= std::chrono::seconds(terminal ? 0 : 1)) {
        const double kbit = played > 0 ? static_cast<double>(sink.bytes) * 8.0 / 1000.0 / played : 0.0;
        std::printf("%s%s  %6llu frames  %8.0f kbit/s%s%s", terminal ? "\r" : "",
                    FormatUtc(from + static_cast<int64_t>(played)).c_str(),
                    static_cast<unsigned long long>(sink.dataBlocks.load()), kbit, paused ? "  paused" : "        ",
                    terminal ? "" : "\n");
        std::fflush(stdout);
        lastProgress = now;
      }
    }
    record->StopPlayBack(device.Handle());
    if (terminal) std::printf("\n");
    if (g_interrupted || quit) std::printf("stopped\n");
    if (sink.endBlocks > 0) std::printf("the stream ended\n");
  }
  std::signal(SIGINT, previousInt);
  std::signal(SIGTERM, previousTerm);
  sink.Close();
  sink.PrintSummary(output.c_str());
  if (sink.writeFailed) exitCode = context.Fail(74, "writing %s failed", output.c_str());
  if (exitCode == 0 && (sink.headBlocks == 0 || sink.dataBlocks == 0))
    exitCode = context.Fail(4, "no video arrived (%llu HEAD, %llu DATA blocks)",
                            static_cast<unsigned long long>(sink.headBlocks.load()),
                            static_cast<unsigned long long>(sink.dataBlocks.load()));
  common->CloseDevice(device.Handle());
  return exitCode;
}

const HostCommandRegistration kPlayback({"playback", "playback [--from T --to T] [--output FILE.mpg]",
                                         "play a span of the camera's recordings into a Program Stream file",
                                         RunPlayback});

}  // namespace
