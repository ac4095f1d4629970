// plugin-host capture: runs the tour against the camera through a recording
// relay, so that what the camera answered can be sent away and replayed
// (camera-sim --replay DIR) where the camera is not.
//   capture --output DIR [--overwrite] [--relay-address A]
#include <cstdio>
#include <string>

#include "CaptureRelay.h"
#include "CaptureWriter.h"
#include "HostCommand.h"
#include "HostSystem.h"

namespace {

constexpr uint16_t kRtspPort = 554;  // the plug-in always asks port 554 of the camera's address for media

// The relay takes the first loopback address where it can listen; RTSP needs
// port 554 there too, which takes root (or a private network namespace).
bool StartRelay(CaptureRelay& relay, const std::string& chosen, std::string& address, std::string* error) {
  const uint16_t rtspPort = MayBindPrivilegedPorts() ? kRtspPort : 0;
  if (rtspPort == 0) std::fprintf(stderr, "plugin-host: not root, so RTSP is not captured\n");
  if (!chosen.empty()) {
    address = chosen;
    return relay.Start(address, rtspPort, error);
  }
  for (int host = 2; host < 255; ++host) {
    address = "127.0.1." + std::to_string(host);
    if (relay.Start(address, rtspPort, error)) return true;
  }
  return false;
}

int RunCapture(HostContext& context) {
  const std::string directory = context.Option("output", "");
  if (directory.empty() || directory == "1") return context.Fail(64, "capture: --output DIR is required");
  CaptureWriter writer;
  std::string error;
  if (!writer.Open(directory, context.options.count("overwrite") != 0, &error)) {
    return context.Fail(73, "capture: %s", error.c_str());
  }
  const std::string cameraAddress = context.camera.host + ":" + std::to_string(context.camera.httpPort);
  writer.Describe(cameraAddress, std::string("plugin-host, plug-in ") + context.plugin.Record().GetVersion(),
                  {context.camera.password});

  CaptureRelay relay(writer, context.camera.host, context.camera.httpPort);
  std::string relayAddress;
  if (!StartRelay(relay, context.Option("relay-address", ""), relayAddress, &error)) {
    writer.RecordFailure("the relay did not start: " + error);
    writer.Finish();
    return context.Fail(69, "capture: the relay did not start: %s", error.c_str());
  }
  std::printf("capturing %s through %s:%u into %s\n", cameraAddress.c_str(), relayAddress.c_str(), relay.HttpPort(),
              directory.c_str());
  std::fflush(stdout);

  // The tour as it is, pointed at the relay; alarms are asked for over HTTP
  // too, so that the capture holds that exchange.
  HostContext tour{context.plugin, context.camera, {}, {}};
  tour.camera.host = relayAddress;
  tour.camera.httpPort = relay.HttpPort();
  tour.camera.postAlarm = nullptr;
  const int tourResult = HostCommands().at("tour").run(tour);
  relay.Stop();

  uintmax_t total = 0;
  std::printf("\n== capture: %zu HTTP exchange(s) in %s\n", writer.Exchanges(), directory.c_str());
  for (const auto& [name, size] : writer.Finish()) {
    std::printf("  %10ju  %s\n", size, name.c_str());
    total += size;
  }
  std::printf("  %10ju  in all\n", total);
  std::printf("the tour %s; replay with: camera-sim --replay %s --address ADDRESS\n",
              tourResult == 0 ? "passed" : "had failures (recorded as the camera answered)", directory.c_str());
  return 0;
}

const HostCommandRegistration kCapture({"capture", "capture --output DIR [--overwrite] [--relay-address A]",
                                        "the tour through a relay that records what the camera answered", RunCapture});

}  // namespace
