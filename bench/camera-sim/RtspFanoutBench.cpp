// RtspFanoutBench - what one simulator costs per live client.
//
// Each simulator runs in a child process so that its CPU time (from
// /proc/PID/stat) holds nothing of the clients, which run here as sessions of
// the plug-in's media client reading TCP-interleaved RTP. Prints the simulator's CPU
// time per second of wall time with one client (the anchor), with 64 clients,
// and with four simulators of 64 clients each at once.
//
//   camera_sim_rtsp_bench [seconds per measurement, default 10]
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "MDClient.h"
#include "ProcessStats.h"
#include "camera_sim/RtspServer.h"

namespace {

using namespace std::chrono_literals;

constexpr const char* kAddress = "127.0.0.1";
constexpr const char* kUser = "root";
constexpr const char* kPassword = "pass";

struct SimulatorProcess {
  pid_t pid = -1;
  uint16_t port = 0;
  int holdFd = -1;  // closing it tells the simulator to stop
};

// Hold pipes of the simulators running now; a new simulator must not keep
// its siblings' open, or they would never see them close.
std::vector<int> g_holdFds;

// Forks a simulator; it serves until the hold pipe closes.
SimulatorProcess StartSimulator() {
  int portPipe[2], holdPipe[2];
  if (::pipe(portPipe) != 0 || ::pipe(holdPipe) != 0) std::exit(2);
  SimulatorProcess process;
  process.pid = ::fork();
  if (process.pid == 0) {
    for (int fd : g_holdFds) ::close(fd);
    ::close(portPipe[0]);
    ::close(holdPipe[1]);
    camsim::RtspConfig config;
    config.address = kAddress;
    config.port = 0;
    config.user = kUser;
    config.password = kPassword;
    camsim::RtspServer server(config);
    std::string error;
    uint16_t port = 0;
    if (server.Start(&error))
      port = server.Port();
    else
      std::fprintf(stderr, "simulator: %s\n", error.c_str());
    if (::write(portPipe[1], &port, sizeof port) != sizeof port) ::_exit(1);
    char byte;
    while (::read(holdPipe[0], &byte, 1) > 0) {
    }
    server.Stop();
    ::_exit(0);
  }
  ::close(portPipe[1]);
  ::close(holdPipe[0]);
  if (::read(portPipe[0], &process.port, sizeof process.port) != sizeof process.port || process.port == 0) {
    std::fprintf(stderr, "simulator did not start\n");
    std::exit(1);
  }
  ::close(portPipe[0]);
  process.holdFd = holdPipe[1];
  g_holdFds.push_back(process.holdFd);
  return process;
}

void StopSimulator(SimulatorProcess* process) {
  ::close(process->holdFd);
  g_holdFds.erase(std::find(g_holdFds.begin(), g_holdFds.end(), process->holdFd));
  int status = 0;
  ::waitpid(process->pid, &status, 0);
}

// Live sessions of the media client the plug-in uses; packets are counted and dropped.
class Clients {
 public:
  ~Clients() { StopAll(); }

  // Opens `count` sessions; false when one cannot play.
  bool Add(uint16_t port, int count) {
    const std::string url = "rtsp://" + std::string(kUser) + ":" + kPassword + "@" + kAddress + ":" +
                            std::to_string(port) + "/axis-media/media.amp?videocodec=h264&camera=1";
    for (int i = 0; i < count; ++i) {
      m_ids.push_back(MDC_Create(url.c_str(), 0));
      if (m_ids.back() < 0 || MDC_Open(m_ids.back(), &Clients::OnData, this) != 0) return false;
    }
    return true;
  }
  long long Packets() const { return m_packets; }
  void StopAll() {
    for (int32_t id : m_ids) MDC_Destroy(id);
    m_ids.clear();
  }

 private:
  static void OnData(int32_t, int32_t type, const uint8_t*, int32_t, void* user) {
    if (type == MDC_DATA_VIDEO) ++static_cast<Clients*>(user)->m_packets;
  }

  std::vector<int32_t> m_ids;
  std::atomic<long long> m_packets{0};
};

struct Measurement {
  double cpuPerSecond = 0;  // mean over the simulators
  double packetsPerSecond = 0;
};

// `simulators` simulators with `clientsEach` clients; CPU over `seconds` after a warm-up.
Measurement Measure(int simulators, int clientsEach, double seconds) {
  std::vector<SimulatorProcess> processes;
  for (int i = 0; i < simulators; ++i) processes.push_back(StartSimulator());
  Measurement result;
  {
    Clients clients;
    bool playing = true;
    for (auto& process : processes) playing = clients.Add(process.port, clientsEach) && playing;
    if (!playing) {
      std::fprintf(stderr, "not every client could play\n");
      std::exit(1);
    }
    std::this_thread::sleep_for(2s);
    std::vector<double> before;
    for (auto& process : processes) before.push_back(bench::ProcessCpuSeconds(process.pid));
    const long long packetsBefore = clients.Packets();
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    double cpu = 0;
    for (size_t i = 0; i < processes.size(); ++i) cpu += bench::ProcessCpuSeconds(processes[i].pid) - before[i];
    result.cpuPerSecond = cpu / wall / simulators;
    result.packetsPerSecond = static_cast<double>(clients.Packets() - packetsBefore) / wall;
  }
  for (auto& process : processes) StopSimulator(&process);
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  ::signal(SIGPIPE, SIG_IGN);
  const double seconds = argc > 1 ? std::atof(argv[1]) : 10.0;
  const Measurement anchor = Measure(1, 1, seconds);
  const Measurement fanout = Measure(1, 64, seconds);
  const Measurement four = Measure(4, 64, seconds);
  std::printf("simulator CPU per wall second (1.0 = one core), live H.264 640x360 25 fps over TCP:\n");
  std::printf("  anchor, 1 simulator x 1 client:    %.4f  (%.0f RTP packets/s received)\n", anchor.cpuPerSecond,
              anchor.packetsPerSecond);
  std::printf("  1 simulator x 64 clients:          %.4f  (%.0f RTP packets/s received)  ratio to anchor %.1f\n",
              fanout.cpuPerSecond, fanout.packetsPerSecond, fanout.cpuPerSecond / anchor.cpuPerSecond);
  std::printf("  4 simulators x 64 clients, each:   %.4f  (%.0f RTP packets/s received)  ratio to anchor %.1f\n",
              four.cpuPerSecond, four.packetsPerSecond, four.cpuPerSecond / anchor.cpuPerSecond);
  std::printf("  target: 64 clients under 0.2 of a core: %s\n", fanout.cpuPerSecond < 0.2 ? "met" : "NOT met");
  return 0;
}
