// plugin-host live: asks the plug-in for the camera's live video and writes the
// HEAD and DATA blocks to a file (an MPEG-2 Program Stream any player opens).
//   live [--seconds N] [--output FILE.mpg] [--codec h264|h265] [--channel C]
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "HostCommand.h"
#include "StreamFileSink.h"

namespace {

std::atomic<bool> g_interrupted{false};

void OnInterrupt(int) { g_interrupted = true; }

void PrintProgress(const StreamFileSink& sink, double elapsed, bool terminal) {
  const double kbit = elapsed > 0 ? static_cast<double>(sink.bytes) * 8.0 / 1000.0 / elapsed : 0.0;
  std::printf("%s%6.1f s  %6llu frames  %8.0f kbit/s%s", terminal ? "\r" : "", elapsed,
              static_cast<unsigned long long>(sink.dataBlocks.load()), kbit, terminal ? "" : "\n");
  std::fflush(stdout);
}

int RunLive(HostContext& context) {
  const double seconds = std::atof(context.Option("seconds", "5").c_str());
  const std::string output = context.Option("output", "live.mpg");
  const std::string codec = context.Option("codec", "h264");
  const int channel = std::atoi(context.Option("channel", "0").c_str());
  if (seconds <= 0 || (codec != "h264" && codec != "h265") || channel < 0) {
    return context.Fail(64, "live: --seconds > 0, --codec h264|h265, --channel >= 0");
  }
  const auto* stream = context.plugin.Query<PluginStreamTable>("stream");
  if (stream == nullptr) return context.Fail(1, "the plug-in has no \"stream\" table");
  DeviceInstance device(context.plugin);
  if (device.Handle() == nullptr) return context.Fail(1, "the plug-in could not create a device object");
  if (!OpenCamera(context, device.Handle())) return 2;

  StreamFileSink sink;
  sink.file = std::fopen(output.c_str(), "wb");
  if (sink.file == nullptr) return context.Fail(73, "cannot write %s", output.c_str());
  const std::string params = "videoencoding=" + codec;
  PluginStreamRequest request{};
  request.address = context.camera.host.c_str();
  request.port = context.camera.httpPort;
  request.channel = channel;
  request.user = context.camera.user.c_str();
  request.password = context.camera.password.c_str();
  request.params = params.c_str();

  g_interrupted = false;
  auto previousInt = std::signal(SIGINT, OnInterrupt);
  auto previousTerm = std::signal(SIGTERM, OnInterrupt);
  const auto started = std::chrono::steady_clock::now();
  const int32_t result = stream->StartStream(device.Handle(), &request, &StreamFileSink::OnBlock, &sink);
  int exitCode = 0;
  if (result != 0) {
    exitCode = context.Fail(3, "StartStream returned %d; the plug-in's log says why", result);
  } else {
    const bool terminal = isatty(STDOUT_FILENO) != 0;
    double elapsed = 0;
    auto lastProgress = started;
    while (!g_interrupted && sink.endBlocks == 0 && elapsed < seconds) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      const auto now = std::chrono::steady_clock::now();
      elapsed = std::chrono::duration<double>(now - started).count();
      if (now - lastProgress >= std::chrono::seconds(terminal ? 0 : 1)) {
        PrintProgress(sink, elapsed, terminal);
        lastProgress = now;
      }
    }
    stream->StopStream(device.Handle());
    if (terminal) std::printf("\n");
    if (g_interrupted) std::printf("interrupted\n");
    if (sink.endBlocks > 0) std::printf("the camera ended the stream\n");
  }
  std::signal(SIGINT, previousInt);
  std::signal(SIGTERM, previousTerm);
  sink.Close();
  sink.PrintSummary(output.c_str());
  if (sink.writeFailed) return context.Fail(74, "writing %s failed", output.c_str());
  if (exitCode == 0 && (sink.headBlocks == 0 || sink.dataBlocks == 0))
    exitCode = context.Fail(4, "no video arrived (%llu HEAD, %llu DATA blocks)",
                            static_cast<unsigned long long>(sink.headBlocks.load()),
                            static_cast<unsigned long long>(sink.dataBlocks.load()));
  const auto* common = context.plugin.Query<PluginCommonTable>("common");
  common->CloseDevice(device.Handle());
  return exitCode;
}

const HostCommandRegistration kLive({"live", "live [--seconds N] [--output FILE.mpg] [--codec h264|h265] [--channel C]",
                                     "write the camera's live video to a Program Stream file", RunLive});

}  // namespace
