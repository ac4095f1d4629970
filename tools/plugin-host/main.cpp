// plugin-host: a command-line stand-in for the video-management platform.
//
//   plugin-host [--plugin PATH] [--camera HOST[:PORT] --user U --password P] COMMAND [OPTIONS]
//
// Without --camera it starts the embedded camera simulator on a free loopback
// address and drives that (on Linux: the simulator is a Linux program).
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "HostCommand.h"
#include "HostSystem.h"
#include "PluginLoader.h"
#ifdef NETCAM_HOST_EMBEDS_CAMERA
#include "camera_sim/Camera.h"
#endif

namespace {

void PrintUsage() {
  std::fprintf(stderr,
               "usage: plugin-host [--plugin PATH] [--camera HOST[:PORT] --user U --password P] COMMAND [OPTIONS]\n"
               "commands:\n");
  for (const auto& [name, command] : HostCommands())
    std::fprintf(stderr, "  %-40s %s\n", command.usage.c_str(), command.help.c_str());
#ifdef NETCAM_HOST_EMBEDS_CAMERA
  std::fprintf(stderr, "Without --camera the embedded camera simulator is started.\n");
#else
  std::fprintf(stderr, "--camera is required: this host has no embedded camera simulator.\n");
#endif
}

#ifdef _WIN32
constexpr char kPluginFileName[] = "netcam_plugin.dll";
#else
constexpr char kPluginFileName[] = "netcam_plugin.so";
#endif

std::string DefaultPluginPath() {
  // An installed or staged layout first: <prefix>/bin/plugin-host next to
  // <prefix>/plugins/axis/netcam_plugin.so (.dll); else the one this host was built with.
  const std::string directory = ExecutableDirectory();
  if (!directory.empty()) {
    const std::string staged = directory + "/../plugins/axis/" + kPluginFileName;
    if (std::ifstream(staged).good()) return staged;
  }
  return NETCAM_DEFAULT_PLUGIN_PATH;
}

#ifdef NETCAM_HOST_EMBEDS_CAMERA
// Starts a simulated camera on the first free address of 127.0.0.2 - .254,
// with RTSP on 554 when this process may bind it.
std::unique_ptr<camsim::Camera> StartEmbeddedCamera(CameraTarget& target) {
  const bool privileged = MayBindPrivilegedPorts();
  if (!privileged) {
    std::fprintf(stderr,
                 "plugin-host: not root, so the simulator cannot serve RTSP on port 554; live video needs root "
                 "or a private network namespace (unshare -rn)\n");
  }
  std::string lastError;
  for (int host = 2; host < 255; ++host) {
    camsim::CameraConfig config;
    config.address = "127.0.0." + std::to_string(host);
    config.rtspPort = privileged ? 554 : 0;
    auto camera = std::make_unique<camsim::Camera>(config);
    if (camera->Start(&lastError)) {
      target.host = config.address;
      target.httpPort = camera->HttpPort();
      target.user = config.user;
      target.password = config.password;
      camsim::Camera* simulator = camera.get();
      target.postAlarm = [simulator](const std::string& eventUrl) { return simulator->PostMotionAlarm(eventUrl); };
      std::printf("simulated camera at http://%s:%u\n", target.host.c_str(), target.httpPort);
      return camera;
    }
  }
  std::fprintf(stderr, "plugin-host: the camera simulator did not start: %s\n", lastError.c_str());
  return nullptr;
}
#endif

bool ParseCamera(const std::string& text, CameraTarget& target) {
  size_t colon = text.rfind(':');
  target.host = text.substr(0, colon);
  if (colon != std::string::npos) {
    char* end = nullptr;
    long port = std::strtol(text.c_str() + colon + 1, &end, 10);
    if (*end != '\0' || port <= 0 || port > 65535) return false;
    target.httpPort = static_cast<uint16_t>(port);
  }
  return !target.host.empty() && target.host.size() < sizeof(DeviceLoginParam::ip);
}

}  // namespace

int main(int argc, char** argv) {
  std::string pluginPath = DefaultPluginPath();
  CameraTarget camera;
  bool cameraGiven = false;
  std::string commandName;
  std::map<std::string, std::string> options;
  std::vector<std::string> arguments;

  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    auto value = [&](const char* name) -> std::string {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "plugin-host: %s needs a value\n", name);
        std::exit(64);
      }
      return argv[++i];
    };
    if (arg == "--help" || arg == "-h") {
      PrintUsage();
      return 0;
    } else if (commandName.empty() && arg == "--plugin") {
      pluginPath = value("--plugin");
    } else if (commandName.empty() && arg == "--camera") {
      if (!ParseCamera(value("--camera"), camera)) {
        std::fprintf(stderr, "plugin-host: --camera wants HOST[:PORT] (an IPv4 address of at most 15 characters)\n");
        return 64;
      }
      cameraGiven = true;
    } else if (commandName.empty() && arg == "--user") {
      camera.user = value("--user");
    } else if (commandName.empty() && arg == "--password") {
      camera.password = value("--password");
    } else if (commandName.empty() && arg.rfind("--", 0) != 0) {
      commandName = arg;
    } else if (!commandName.empty() && arg.rfind("--", 0) == 0) {
      std::string name = arg.substr(2);
      std::string given = (i + 1 < argc && std::string(argv[i + 1]).rfind("--", 0) != 0) ? argv[++i] : "1";
      // A repeated option keeps every value, one per line, in order.
      options[name] = options.count(name) != 0 ? options[name] + "\n" + given : given;
    } else if (!commandName.empty() && arguments.empty() && HostCommands().count(commandName + " " + arg) != 0) {
      commandName += " " + arg;  // a two-word command ("schedule set")
    } else if (!commandName.empty()) {
      arguments.push_back(arg);  // words after the command: "ptz left", "profile set NAME"
    } else {
      std::fprintf(stderr, "plugin-host: unexpected argument %s\n", arg.c_str());
      PrintUsage();
      return 64;
    }
  }
  if (commandName.empty()) {
    PrintUsage();
    return 64;
  }
  auto command = HostCommands().find(commandName);
  if (command == HostCommands().end()) {
    std::fprintf(stderr, "plugin-host: unknown command %s\n", commandName.c_str());
    PrintUsage();
    return 64;
  }

  // Log lines go to a file unless the caller chose otherwise, so that the
  // terminal shows the commands' own output.
  SetEnvironmentDefault("NETCAM_LOG_FILE", "netcam_plugin.log");
  std::printf("plug-in log: %s\n", std::getenv("NETCAM_LOG_FILE"));

#ifdef NETCAM_HOST_EMBEDS_CAMERA
  std::unique_ptr<camsim::Camera> simulator;
  if (!cameraGiven) {
    simulator = StartEmbeddedCamera(camera);
    if (!simulator) return 69;
  }
#else
  if (!cameraGiven) {
    std::fprintf(stderr,
                 "plugin-host: this host has no embedded camera simulator; give a camera with --camera HOST:PORT "
                 "--user U --password P (for example a camera-sim started on a Linux machine)\n");
    return 64;
  }
#endif

  PluginLoader plugin;
  std::string error;
  if (!plugin.Load(pluginPath, &error)) {
    std::fprintf(stderr, "plugin-host: %s\n", error.c_str());
    return 69;
  }
  HostContext context{plugin, camera, options, arguments};
  return command->second.run(context);
}
