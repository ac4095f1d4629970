// plugin-host live: asks the plug-in for the camera's live video and writes the
// HEAD and DATA blocks to a file (an MPEG-2 Program Stream any player opens).
// With --streams N it opens N streams at once (one device object each), writes
// the first and reports the process's CPU and memory per stream.
//   live [--seconds N] [--output FILE.mpg] [--codec h264|h265] [--channel C] [--streams N]
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "HostCommand.h"
#include "HostSystem.h"
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

// What the host process spent on its streams: CPU per second of video and
// resident memory per stream, the figures the platform cares about per camera.
void PrintUsage(const ProcessUsage& before, const ProcessUsage& after, int streams, double seconds) {
  if (seconds <= 0) return;
  const double cpuMsPerSecond = (after.cpuSeconds - before.cpuSeconds) * 1000.0 / seconds / streams;
  const double memoryMb = (static_cast<double>(after.residentBytes) - static_cast<double>(before.residentBytes)) /
                          (1024.0 * 1024.0) / streams;
  std::printf("usage: %d stream(s), cpu %.2f ms per stream-second, memory %.2f MB per stream\n", streams,
              cpuMsPerSecond, memoryMb);
}

int RunLive(HostContext& context) {
  const double seconds = std::atof(context.Option("seconds", "5").c_str());
  const std::string output = context.Option("output", "live.mpg");
  const std::string codec = context.Option("codec", "h264");
  const int channel = std::atoi(context.Option("channel", "0").c_str());
  const int streams = std::atoi(context.Option("streams", "1").c_str());
  if (seconds <= 0 || (codec != "h264" && codec != "h265") || channel < 0 || streams < 1 || streams > 256) {
    return context.Fail(64, "live: --seconds > 0, --codec h264|h265, --channel >= 0, --streams 1..256");
  }
  const auto* stream = context.plugin.Query<PluginStreamTable>("stream");
  const auto* common = context.plugin.Query<PluginCommonTable>("common");
  if (stream == nullptr || common == nullptr) return context.Fail(1, "the plug-in has no \"stream\" table");

  // One device object per stream, as the platform has one per camera; the
  // first stream is written to the file, the others are counted.
  std::vector<std::unique_ptr<DeviceInstance>> devices;
  std::vector<std::unique_ptr<StreamFileSink>> sinks;
  for (int i = 0; i < streams; ++i) {
    devices.push_back(std::make_unique<DeviceInstance>(context.plugin));
    if (devices.back()->Handle() == nullptr) return context.Fail(1, "the plug-in could not create a device object");
    if (!OpenCamera(context, devices.back()->Handle())) return 2;
    sinks.push_back(std::make_unique<StreamFileSink>());
  }
  StreamFileSink& sink = *sinks.front();
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
  const ProcessUsage usageBefore = CurrentProcessUsage();
  const auto started = std::chrono::steady_clock::now();
  int exitCode = 0;
  int startedStreams = 0;
  for (int i = 0; i < streams && exitCode == 0; ++i) {
    const int32_t result = stream->StartStream(devices[i]->Handle(), &request, &StreamFileSink::OnBlock, sinks[i].get());
    if (result != 0) {
      exitCode = context.Fail(3, "StartStream returned %d; the plug-in's log says why", result);
    } else {
      ++startedStreams;
    }
  }
  double elapsed = 0;
  if (exitCode == 0) {
    const bool terminal = StandardOutputIsTerminal();
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
    if (terminal) std::printf("\n");
    if (g_interrupted) std::printf("interrupted\n");
    if (sink.endBlocks > 0) std::printf("the camera ended the stream\n");
  }
  const ProcessUsage usageAfter = CurrentProcessUsage();
  for (int i = 0; i < startedStreams; ++i) stream->StopStream(devices[i]->Handle());
  std::signal(SIGINT, previousInt);
  std::signal(SIGTERM, previousTerm);
  sink.Close();
  sink.PrintSummary(output.c_str());
  if (exitCode == 0) PrintUsage(usageBefore, usageAfter, streams, elapsed);
  if (sink.writeFailed) return context.Fail(74, "writing %s failed", output.c_str());
  for (int i = 0; i < streams && exitCode == 0; ++i) {
    if (sinks[i]->headBlocks == 0 || sinks[i]->dataBlocks == 0)
      exitCode = context.Fail(4, "no video arrived on stream %d (%llu HEAD, %llu DATA blocks)", i + 1,
                              static_cast<unsigned long long>(sinks[i]->headBlocks.load()),
                              static_cast<unsigned long long>(sinks[i]->dataBlocks.load()));
  }
  for (const auto& device : devices) common->CloseDevice(device->Handle());
  return exitCode;
}

const HostCommandRegistration kLive({"live",
                                     "live [--seconds N] [--output FILE.mpg] [--codec h264|h265] [--channel C] "
                                     "[--streams N]",
                                     "write the camera's live video to a Program Stream file", RunLive});

}  // namespace
