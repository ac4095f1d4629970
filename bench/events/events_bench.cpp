// events_bench: alarms through the plug-in's event centre, from simulated
// cameras on their own loopback addresses, against libmicrohttpd answering
// the same requests directly with a fixed reply (the server library's own
// ceiling on this machine, measured in the same run).
//
//   events_bench [--seconds 5] [--cameras 64] [--rate 1000]
//
// Throughput: every camera keeps one keep-alive connection with one alarm in
// flight. Latency: alarms at --rate per second in all, from the camera's POST
// to the alarm callback (and, for the anchor, to the bare server's reply).
#include <arpa/inet.h>
#include <dlfcn.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "ProcessStats.h"
#include "netcam_plugin.h"

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr char kAlarmRequest[] =
    "POST /axis/uploadalarm/motiondetection HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/plain\r\n"
    "Content-Length: 26\r\n\r\nMotion detected camera=1\r\n";

// One simulated camera: a keep-alive connection from its own address.
struct Camera {
  std::string address;
  int fd = -1;
  std::string pending;  // bytes of the answer read so far
  Clock::time_point sent;
  bool waiting = false;
};

bool ConnectCamera(Camera& camera, uint16_t port) {
  camera.fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in local{}, remote{};
  local.sin_family = remote.sin_family = AF_INET;
  inet_pton(AF_INET, camera.address.c_str(), &local.sin_addr);
  remote.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  remote.sin_port = htons(port);
  return bind(camera.fd, reinterpret_cast<sockaddr*>(&local), sizeof local) == 0 &&
         connect(camera.fd, reinterpret_cast<sockaddr*>(&remote), sizeof remote) == 0;
}

struct LoadResult {
  uint64_t sent = 0, answered = 0, refused = 0;  // refused: not a 200 with `expectedBody`
  double seconds = 0;
  std::vector<double> roundTripsMs;
};

// Drives the cameras against 127.0.0.1:`port` for `seconds`. With `rate` 0
// every camera sends again as soon as it is answered; otherwise alarms go
// out at `rate` per second in all, round robin. Stops by itself.
LoadResult RunLoad(std::vector<Camera>& cameras, uint16_t port, double seconds, double rate,
                   const std::string& expectedBody, std::vector<std::atomic<Clock::rep>>* sentAt) {
  LoadResult result;
  for (Camera& camera : cameras) {
    if (!ConnectCamera(camera, port)) {
      std::fprintf(stderr, "events_bench: camera %s cannot connect to port %u\n", camera.address.c_str(), port);
      std::exit(1);
    }
  }
  std::vector<pollfd> polls(cameras.size());
  const Clock::time_point start = Clock::now();
  const Clock::time_point end =
      start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  auto nextSend = start;
  size_t nextCamera = 0;
  auto send1 = [&](size_t index) {
    Camera& camera = cameras[index];
    camera.sent = Clock::now();
    if (sentAt != nullptr) (*sentAt)[index] = camera.sent.time_since_epoch().count();
    camera.waiting = true;
    ++result.sent;
    if (::send(camera.fd, kAlarmRequest, sizeof kAlarmRequest - 1, MSG_NOSIGNAL) < 0) camera.waiting = false;
  };
  if (rate == 0)
    for (size_t i = 0; i < cameras.size(); ++i) send1(i);
  for (;;) {
    const auto now = Clock::now();
    bool anyWaiting = false;
    for (const Camera& camera : cameras) anyWaiting |= camera.waiting;
    if (now >= end && !anyWaiting) break;
    if (now >= end + std::chrono::seconds(10)) break;  // answers that never come are counted missing
    if (rate > 0 && now < end) {
      while (nextSend <= now) {
        if (!cameras[nextCamera].waiting) send1(nextCamera);
        nextCamera = (nextCamera + 1) % cameras.size();
        nextSend += std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1.0 / rate));
      }
    }
    for (size_t i = 0; i < cameras.size(); ++i) polls[i] = {cameras[i].fd, POLLIN, 0};
    const int timeoutMs =
        rate > 0 ? std::max<int>(
                       0, static_cast<int>(
                              std::chrono::duration_cast<std::chrono::milliseconds>(nextSend - Clock::now()).count()))
                 : 100;
    if (poll(polls.data(), polls.size(), timeoutMs) <= 0) continue;
    for (size_t i = 0; i < cameras.size(); ++i) {
      if ((polls[i].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
      Camera& camera = cameras[i];
      char buffer[2048];
      const ssize_t got = recv(camera.fd, buffer, sizeof buffer, 0);
      if (got <= 0) {
        std::fprintf(stderr, "events_bench: the server closed camera %s's connection\n", camera.address.c_str());
        std::exit(1);
      }
      camera.pending.append(buffer, static_cast<size_t>(got));
      const size_t headerEnd = camera.pending.find("\r\n\r\n");
      const size_t lengthAt = camera.pending.find("Content-Length: ");
      if (headerEnd == std::string::npos || lengthAt == std::string::npos) continue;
      const size_t length = std::strtoul(camera.pending.c_str() + lengthAt + 16, nullptr, 10);
      if (camera.pending.size() < headerEnd + 4 + length) continue;
      const bool ok = camera.pending.compare(0, 12, "HTTP/1.1 200") == 0 &&
                      camera.pending.compare(headerEnd + 4, length, expectedBody) == 0;
      camera.pending.erase(0, headerEnd + 4 + length);
      camera.waiting = false;
      ++result.answered;
      if (!ok) ++result.refused;
      result.roundTripsMs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - camera.sent).count());
      if (rate == 0 && Clock::now() < end) send1(i);
    }
  }
  result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  for (Camera& camera : cameras) {
    close(camera.fd);
    camera.fd = -1;
    camera.pending.clear();
    camera.waiting = false;
  }
  return result;
}

double Percentile(std::vector<double> values, double fraction) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[std::min(values.size() - 1, static_cast<size_t>(fraction * static_cast<double>(values.size())))];
}

// libmicrohttpd with the same threading, answering at once with a fixed reply.
constexpr char kBareReply[] = "{\n\t\"status\": \"Success\",\n\t\"msg\": \"Success\"\n}";

MHD_Result BareAnswer(void*, MHD_Connection* connection, const char*, const char*, const char*, const char*,
                      size_t* uploadSize, void** context) {
  if (*context == nullptr) {
    *context = connection;
    return MHD_YES;
  }
  if (*uploadSize != 0) {
    *uploadSize = 0;
    return MHD_YES;
  }
  MHD_Response* response =
      MHD_create_response_from_buffer(sizeof kBareReply - 1, const_cast<char*>(kBareReply), MHD_RESPMEM_PERSISTENT);
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "application/xml; charset=\"UTF-8\"");
  const MHD_Result result = MHD_queue_response(connection, MHD_HTTP_OK, response);
  MHD_destroy_response(response);
  return result;
}

// The plug-in as the platform installs it: a staging tree with Setup.xml.
struct StagedPlugin {
  std::string stage;
  void* module = nullptr;
  int32_t (*Init)(void*) = nullptr;
  int32_t (*Fini)() = nullptr;
  PluginDeviceHandle (*Create)() = nullptr;
  int32_t (*Destroy)(PluginDeviceHandle) = nullptr;
  int32_t (*Open)(PluginDeviceHandle, const DeviceLoginParam*) = nullptr;
  int32_t (*Subscribe)(PluginDeviceHandle, PluginAlarmCallback, void*) = nullptr;

  explicit StagedPlugin(uint16_t port) {
    char directory[] = "/tmp/netcam-events-bench-XXXXXX";
    stage = mkdtemp(directory);
    fs::create_directories(stage + "/plugins/axis");
    fs::create_directories(stage + "/META_INFO/extdev_axis.d/runtime_script");
    fs::create_symlink(NETCAM_PLUGIN_PATH, stage + "/plugins/axis/netcam_plugin.so");
    std::ofstream(stage + "/META_INFO/extdev_axis.d/runtime_script/Setup.xml")
        << "<Configs><AxisPort><Event>" << port << "</Event></AxisPort></Configs>\n";
    if (getenv("NETCAM_LOG_FILE") == nullptr) setenv("NETCAM_LOG_FILE", (stage + "/plugin.log").c_str(), 1);
    module = dlopen((stage + "/plugins/axis/netcam_plugin.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
      std::fprintf(stderr, "events_bench: %s\n", dlerror());
      std::exit(1);
    }
    Init = reinterpret_cast<decltype(Init)>(dlsym(module, "DeviceObject_Init"));
    Fini = reinterpret_cast<decltype(Fini)>(dlsym(module, "DeviceObject_Fini"));
    Create = reinterpret_cast<decltype(Create)>(dlsym(module, "DeviceObject_CreateInstance"));
    Destroy = reinterpret_cast<decltype(Destroy)>(dlsym(module, "DeviceObject_DestroyInstance"));
    Open = reinterpret_cast<decltype(Open)>(dlsym(module, "DeviceObject_OpenDevice"));
    Subscribe = reinterpret_cast<decltype(Subscribe)>(dlsym(module, "DeviceObject_SetEventCallBack"));
  }
  ~StagedPlugin() {
    dlclose(module);
    fs::remove_all(stage);
  }
};

// Callbacks: a count, and the time each camera's latest alarm arrived.
struct Delivery {
  std::atomic<uint64_t> alarms{0};
  std::vector<PluginDeviceHandle> devices;
  std::vector<std::atomic<Clock::rep>> sentAt;  // written by the cameras, read by the callbacks
  std::vector<double> latenciesMs;
  std::mutex mutex;
  std::atomic<bool> measure{false};

  static int32_t NETCAM_CALL OnAlarm(PluginDeviceHandle device, uint32_t, uint32_t, const void*, intptr_t, void* user) {
    auto* self = static_cast<Delivery*>(user);
    ++self->alarms;
    if (self->measure) {
      const auto now = Clock::now();
      const size_t index = std::find(self->devices.begin(), self->devices.end(), device) - self->devices.begin();
      std::lock_guard<std::mutex> lock(self->mutex);
      const Clock::time_point sent{Clock::duration(self->sentAt[index].load())};
      self->latenciesMs.push_back(std::chrono::duration<double, std::milli>(now - sent).count());
    }
    return 0;
  }
};

uint16_t FreePort() {
  const int probe = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
  getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
  close(probe);
  return ntohs(address.sin_port);
}

}  // namespace

int main(int argc, char** argv) {
  double seconds = 5, rate = 1000;
  size_t cameraCount = 64;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    if (option == "--seconds") seconds = std::atof(argv[i + 1]);
    if (option == "--cameras") cameraCount = static_cast<size_t>(std::atoi(argv[i + 1]));
    if (option == "--rate") rate = std::atof(argv[i + 1]);
  }
  if (seconds <= 0 || cameraCount == 0 || cameraCount > 250 || rate <= 0) {
    std::fprintf(stderr, "usage: events_bench [--seconds S] [--cameras 1-250] [--rate ALARMS_PER_SECOND]\n");
    return 64;
  }
  std::vector<Camera> cameras(cameraCount);
  for (size_t i = 0; i < cameraCount; ++i) cameras[i].address = "127.0.9." + std::to_string(i + 2);
  const std::string success = kBareReply;

  // Anchor: the bare server, same threading (one internal epoll thread).
  const uint16_t barePort = FreePort();
  sockaddr_in bareAddress{};
  bareAddress.sin_family = AF_INET;
  bareAddress.sin_port = htons(barePort);
  bareAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  MHD_Daemon* bare =
      MHD_start_daemon(MHD_USE_AUTO_INTERNAL_THREAD | MHD_USE_ERROR_LOG, barePort, nullptr, nullptr, &BareAnswer,
                       nullptr, MHD_OPTION_SOCK_ADDR, &bareAddress, MHD_OPTION_CONNECTION_LIMIT, 1024u, MHD_OPTION_END);
  if (bare == nullptr) {
    std::fprintf(stderr, "events_bench: the bare server did not start on port %u\n", barePort);
    return 1;
  }
  const LoadResult bareThroughput = RunLoad(cameras, barePort, seconds, 0, success, nullptr);
  const LoadResult bareLatency = RunLoad(cameras, barePort, seconds, rate, success, nullptr);
  MHD_stop_daemon(bare);

  // The plug-in: one subscribed device object per camera.
  const uint16_t port = FreePort();
  StagedPlugin plugin(port);
  if (plugin.Init(nullptr) != 0) return 1;
  Delivery delivery;
  delivery.sentAt = std::vector<std::atomic<Clock::rep>>(cameraCount);
  for (const Camera& camera : cameras) {
    PluginDeviceHandle device = plugin.Create();
    DeviceLoginParam login{};
    std::strncpy(login.ip, camera.address.c_str(), sizeof login.ip - 1);
    login.port = 1;  // nothing answers there: the open fails at once and keeps the address
    plugin.Open(device, &login);
    plugin.Subscribe(device, &Delivery::OnAlarm, &delivery);
    delivery.devices.push_back(device);
  }
  const double cpuBefore = bench::ProcessCpuSeconds();
  const LoadResult throughput = RunLoad(cameras, port, seconds, 0, success, nullptr);
  const double cpu = bench::ProcessCpuSeconds() - cpuBefore;
  const uint64_t deliveredInThroughput = delivery.alarms.exchange(0);
  delivery.measure = true;
  const LoadResult latency = RunLoad(cameras, port, seconds, rate, success, &delivery.sentAt);
  delivery.measure = false;
  const double memory = bench::ResidentMegabytes();
  for (PluginDeviceHandle device : delivery.devices) plugin.Destroy(device);
  plugin.Fini();

  const double bareRate = static_cast<double>(bareThroughput.answered) / bareThroughput.seconds;
  const double centreRate = static_cast<double>(throughput.answered) / throughput.seconds;
  std::printf("throughput, %zu cameras, %.0f s each:\n", cameraCount, seconds);
  std::printf("  bare libmicrohttpd, fixed reply : %9.0f requests/s\n", bareRate);
  std::printf("  event centre to the callbacks   : %9.0f alarms/s (%.2f of bare; targets: >= 20000/s, >= 0.50)\n",
              centreRate, centreRate / bareRate);
  std::printf("  sent %llu, answered %llu, not \"Success\" %llu, callbacks %llu; process CPU %.2f s\n",
              static_cast<unsigned long long>(throughput.sent), static_cast<unsigned long long>(throughput.answered),
              static_cast<unsigned long long>(throughput.refused),
              static_cast<unsigned long long>(deliveredInThroughput), cpu);
  std::printf("latency at %.0f alarms/s:\n", rate);
  std::printf("  bare libmicrohttpd, POST to reply : median %.3f ms, p99 %.3f ms\n",
              Percentile(bareLatency.roundTripsMs, 0.5), Percentile(bareLatency.roundTripsMs, 0.99));
  std::printf("  event centre, POST to callback    : median %.3f ms, p99 %.3f ms (target p99 < 5 ms; %.2fx bare)\n",
              Percentile(delivery.latenciesMs, 0.5), Percentile(delivery.latenciesMs, 0.99),
              Percentile(delivery.latenciesMs, 0.99) / std::max(1e-9, Percentile(bareLatency.roundTripsMs, 0.99)));
  std::printf("  event centre, POST to reply       : median %.3f ms, p99 %.3f ms; %llu of %llu answered\n",
              Percentile(latency.roundTripsMs, 0.5), Percentile(latency.roundTripsMs, 0.99),
              static_cast<unsigned long long>(latency.answered), static_cast<unsigned long long>(latency.sent));
  std::printf("resident memory %.1f MB\n", memory);
  const bool allAnswered = throughput.answered == throughput.sent && throughput.refused == 0 &&
                           latency.answered == latency.sent && latency.refused == 0 &&
                           deliveredInThroughput == throughput.answered;
  if (!allAnswered) std::printf("NOT every alarm was answered \"Success\" and delivered\n");
  return allAnswered ? 0 : 1;
}
