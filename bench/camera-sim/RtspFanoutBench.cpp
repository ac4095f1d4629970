// RtspFanoutBench - what one simulator costs per live client.
//
// Each simulator runs in a child process so that its CPU time (from
// /proc/PID/stat) holds nothing of the clients, which run here as threads
// reading TCP-interleaved RTP and dropping it. Prints the simulator's CPU
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

#include "ProcessStats.h"
#include "RtspTestPeer.h"
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

class Clients {
 public:
  ~Clients() { StopAll(); }

  void Add(uint16_t port, int count) {
    for (int i = 0; i < count; ++i) {
      m_threads.emplace_back([this, port] { Run(port); });
    }
  }
  // Waits until every client is playing (or failed).
  bool WaitPlaying() {
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (m_playing + m_failed < static_cast<int>(m_threads.size())) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(10ms);
    }
    return m_failed == 0;
  }
  long long Packets() const { return m_packets; }
  void StopAll() {
    m_stop = true;
    for (auto& thread : m_threads) thread.join();
    m_threads.clear();
  }

 private:
  void Run(uint16_t port) {
    netcam_test::RtspExchange exchange(kUser, kPassword);
    const std::string url = "rtsp://" + std::string(kAddress) + ":" + std::to_string(port) +
                            "/axis-media/media.amp?videocodec=h264&camera=1";
    bool ok = exchange.Connect(kAddress, port);
    std::string base;
    if (ok) {
      auto describe = exchange.Request("DESCRIBE", url);
      base = describe.Header("Content-Base");
      ok = describe.status == 200 &&
           exchange.Request("SETUP", base + "stream=0", "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n").status ==
               200 &&
           exchange.Request("PLAY", base, "Range: npt=0.000-\r\n").status == 200;
    }
    ++(ok ? m_playing : m_failed);
    while (ok && !m_stop) {
      auto packet = exchange.Receive(200ms);
      if (packet.channel == 0) ++m_packets;
      if (exchange.Closed()) break;
    }
  }

  std::vector<std::thread> m_threads;
  std::atomic<bool> m_stop{false};
  std::atomic<int> m_playing{0}, m_failed{0};
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
    for (auto& process : processes) clients.Add(process.port, clientsEach);
    if (!clients.WaitPlaying()) {
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
