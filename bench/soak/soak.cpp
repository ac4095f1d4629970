// netcam_soak - the plug-in through a long day of misbehaving cameras.
//
// 16 simulated cameras, in a child process, freeze, reset connections, stall
// answers, answer 5xx, cut and garble streams and crawl at random, and post
// motion alarms to the plug-in's event centre. The plug-in, loaded as the
// platform loads it (ZPLUGIN_GetPluginInterface from netcam_plugin.so staged
// with its Setup.xml), streams live video with stops and restarts, plays
// recordings back, searches recordings, writes schedules, moves PTZ, reads
// status and takes snapshots, two platform threads per camera.
//
//   netcam_soak [--minutes 10] [--cameras 16] [--seed 1] [--faults-per-minute 1] [--kinds freeze+reset+...]
//
// Needs root: each camera serves RTSP on port 554 of its own loopback address.
// Prints memory, descriptors and threads at the start, the middle and the end
// (each with the workers parked and no stream open), how the streams ended,
// the alarms left unanswered and the entry points that overran their bounds;
// exits 1 when a target is missed, naming it.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "PluginLoader.h"
#include "SoakCameras.h"
#include "SoakLedger.h"
#include "SoakWorkers.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using Outcome = SoakLedger::Outcome;

constexpr int64_t kSlowGraceMs = 5000;  // a slow link's backlog drains after the episode
constexpr auto kParkBound = seconds(180);
constexpr double kMemoryGrowthMb = 1.0;

struct Options {
  double minutes = 10;
  int cameras = 16;
  uint32_t seed = 1;
  double faultsPerMinute = 1;
  std::vector<camsim::Fault::Kind> kinds;
};

bool ParseOptions(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    if (i + 1 >= argc) return false;
    const char* value = argv[++i];
    if (name == "--kinds") {
      std::string list = value;
      for (size_t start = 0, plus = 0; plus != std::string::npos; start = plus + 1) {
        plus = list.find('+', start);
        camsim::Fault::Kind kind{};
        if (!camsim::KindByName(list.substr(start, plus - start), &kind)) return false;
        options.kinds.push_back(kind);
      }
      continue;
    }
    char* end = nullptr;
    const double number = std::strtod(value, &end);
    if (end == value || *end != '\0' || number <= 0) return false;
    if (name == "--minutes") {
      options.minutes = number;
    } else if (name == "--cameras" && number <= 250) {
      options.cameras = static_cast<int>(number);
    } else if (name == "--seed") {
      options.seed = static_cast<uint32_t>(number);
    } else if (name == "--faults-per-minute" && number <= 60) {
      options.faultsPerMinute = number;
    } else {
      return false;
    }
  }
  return true;
}

// A port nobody listens on now, for the event centre.
uint16_t FreePort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  uint16_t port = 0;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
    port = ntohs(address.sin_port);
  }
  ::close(fd);
  return port;
}

// The plug-in as the platform installs it, with the Setup.xml that names its event port.
std::string Stage(uint16_t eventPort) {
  char directory[] = "/tmp/netcam-soak-XXXXXX";
  const std::string stage = ::mkdtemp(directory);
  fs::create_directories(stage + "/plugins/axis");
  fs::create_directories(stage + "/META_INFO/extdev_axis.d/runtime_script");
  fs::create_symlink(NETCAM_PLUGIN_PATH, stage + "/plugins/axis/netcam_plugin.so");
  std::ofstream(stage + "/META_INFO/extdev_axis.d/runtime_script/Setup.xml")
      << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Configs><AxisPort><Event>" << eventPort
      << "</Event></AxisPort></Configs>\n";
  return stage;
}

// Follows the cameras' report lines: fault episodes (a slow RTSP link excuses
// a stream's silence) and, at the end, the alarms posted and answered.
struct Reports {
  std::mutex mutex;
  std::map<std::string, int> episodes;  // "freeze rtsp" -> how many began
  int posted = -1, answered = -1;

  void Follow(FILE* input, std::vector<std::unique_ptr<SoakCamera>>& cameras) {
    char line[512];
    while (std::fgets(line, sizeof line, input) != nullptr) {
      int camera = 0, posts = 0, answers = 0;
      long long when = 0;
      char phase[8] = {}, kind[16] = {}, side[8] = {};
      std::lock_guard<std::mutex> lock(mutex);
      if (std::sscanf(line, "alarms %d %d", &posts, &answers) == 2) {
        posted = posts;
        answered = answers;
      } else if (std::sscanf(line, "episode %d %7s %lld %15s %7s", &camera, phase, &when, kind, side) == 5 &&
                 camera >= 0 && camera < static_cast<int>(cameras.size())) {
        const bool begins = std::strcmp(phase, "begin") == 0;
        if (begins) ++episodes[std::string(kind) + " " + side];
        if (std::strcmp(kind, "slow") == 0 && std::strcmp(side, "http") != 0) {
          cameras[static_cast<size_t>(camera)]->slowRtspUntil = begins ? INT64_MAX : when + kSlowGraceMs;
        }
      }
    }
  }
};

// The process once it settled: descriptors and threads at their lowest over a few seconds.
ProcessSample Settled() {
  std::this_thread::sleep_for(seconds(3));
  ProcessSample settled = SampleProcess();
  for (int i = 0; i < 5; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    const ProcessSample sample = SampleProcess();
    settled.residentMb = sample.residentMb;
    settled.heapMb = sample.heapMb;
    settled.descriptors = std::min(settled.descriptors, sample.descriptors);
    settled.threads = std::min(settled.threads, sample.threads);
  }
  return settled;
}

struct Target {
  std::string what;
  bool met;
  std::string detail;
};

}  // namespace

int main(int argc, char** argv) {
  ::signal(SIGPIPE, SIG_IGN);
  Options options;
  if (!ParseOptions(argc, argv, options)) {
    std::fprintf(stderr,
                 "usage: netcam_soak [--minutes 10] [--cameras 16] [--seed 1] [--faults-per-minute 1] "
                 "[--kinds freeze+reset+delay+status+cut+garbage+slow]\n");
    return 2;
  }
  if (::geteuid() != 0) {
    std::fprintf(stderr,
                 "netcam_soak: needs root: every simulated camera serves RTSP on port 554 of its own "
                 "loopback address\n");
    return 2;
  }
  const uint16_t eventPort = FreePort();
  const std::string stage = Stage(eventPort);
  SoakCameraPlan plan;
  for (int i = 0; i < options.cameras; ++i) {
    // 127.15.x.y: outside the 127.16-254 range the tests draw their addresses from.
    plan.addresses.push_back("127.15." + std::to_string(::getpid() % 250) + "." + std::to_string(2 + i));
  }
  plan.eventUrl = "http://127.0.0.1:" + std::to_string(eventPort) + "/axis/uploadalarm/motiondetection";
  plan.seed = options.seed;
  plan.faultsPerMinute = options.faultsPerMinute;
  plan.kinds = options.kinds;
  plan.logFile = stage + "/cameras.log";
  // Before any thread of this process exists: the child starts from a clean copy.
  const SoakCameraProcess child = StartSoakCameras(plan);
  FILE* reports = child.pid > 0 ? ::fdopen(child.reports, "r") : nullptr;
  char first[512] = {};
  if (reports == nullptr || std::fgets(first, sizeof first, reports) == nullptr || std::strcmp(first, "ready\n") != 0) {
    std::fprintf(stderr, "netcam_soak: the cameras did not start: %s\n", first);
    if (child.pid > 0) ::kill(child.pid, SIGKILL);
    return 1;
  }
  ::setenv("NETCAM_LOG_FILE", (stage + "/plugin.log").c_str(), 0);

  auto plugin = std::make_unique<PluginLoader>();
  std::string error;
  SoakTables tables;
  if (!plugin->Load(stage + "/plugins/axis/netcam_plugin.so", &error) || !tables.Find(*plugin)) {
    std::fprintf(stderr, "netcam_soak: %s\n", error.empty() ? "the plug-in lacks a table" : error.c_str());
    ::kill(child.pid, SIGKILL);
    return 1;
  }
  const int workers = 2 * options.cameras;
  SoakLedger ledger(workers);
  SoakGate gate(workers);
  std::vector<std::unique_ptr<SoakCamera>> cameras;
  for (int i = 0; i < options.cameras; ++i) {
    cameras.push_back(std::make_unique<SoakCamera>(tables, ledger, gate, i, plan.addresses[static_cast<size_t>(i)],
                                                   options.seed * 1000 + static_cast<uint32_t>(i)));
  }
  Reports followed;
  std::thread reader([&] { followed.Follow(reports, cameras); });
  std::vector<std::thread> threads;
  std::atomic<int> running{workers};
  for (auto& camera : cameras) {
    threads.emplace_back([&running, camera = camera.get()] {
      camera->RunStreams();
      --running;
    });
    threads.emplace_back([&running, camera = camera.get()] {
      camera->RunControl();
      --running;
    });
  }

  std::printf(
      "netcam_soak: %d cameras on 127.15.%d.x for %.0f min, seed %u, %.1f fault episodes a minute per "
      "camera; logs in %s\n",
      options.cameras, ::getpid() % 250, options.minutes, options.seed, options.faultsPerMinute, stage.c_str());
  std::fflush(stdout);
  std::vector<std::string> unparked;
  auto measure = [&](const char* when) {
    if (!gate.Hold(kParkBound)) {
      unparked.push_back(std::string(when) + ": still inside " + ledger.Inside());
    }
    const ProcessSample sample = Settled();
    std::printf("  %-8s %8.1f MB resident  %6.1f MB heap in use  %5d descriptors  %4d threads\n", when,
                sample.residentMb, sample.heapMb, sample.descriptors, sample.threads);
    std::fflush(stdout);
    return sample;
  };
  const ProcessSample atStart = measure("start");
  const auto started = std::chrono::steady_clock::now();
  const auto half = std::chrono::duration<double>(options.minutes * 30.0);
  gate.Release();
  std::this_thread::sleep_until(started + half);
  const ProcessSample atMiddle = measure("middle");
  gate.Release();
  std::this_thread::sleep_until(started + 2 * half);
  const ProcessSample atEnd = measure("end");
  gate.Finish();
  for (int waited = 0; running > 0 && waited < 300; ++waited) std::this_thread::sleep_for(seconds(1));
  if (running > 0) {
    std::printf("netcam_soak: %d platform threads never came back (inside %s); the plug-in hangs\n", running.load(),
                ledger.Inside().c_str());
    std::fflush(stdout);
    ::kill(child.pid, SIGKILL);
    ::_exit(1);
  }
  for (std::thread& thread : threads) thread.join();

  ::close(child.hold);  // the cameras stop and report their alarms
  int status = 0;
  ::waitpid(child.pid, &status, 0);
  reader.join();
  std::fclose(reports);
  int delivered = 0, late = 0;
  for (auto& camera : cameras) {
    delivered += camera->alarms;
    late += camera->LateBlocks();
    camera->Close();
  }
  plugin.reset();  // Fini and unload, as the platform shuts down

  // The report.
  std::printf("\nfault episodes:");
  for (const auto& [kind, count] : followed.episodes) std::printf(" %s %d,", kind.c_str(), count);
  std::printf("\n\n%-9s %7s %9s %6s %8s %10s %13s %9s\n", "streams", "started", "refused", "ended", "several",
              "silent,", "silent under", "resume");
  std::printf("%-9s %7s %9s %6s %8s %10s %13s %9s\n", "", "", "at start", "(END)", "ENDs", "no END", "a slow link",
              "refused");
  int missedStreams = 0;
  for (const char* kind : {"live", "playback"}) {
    auto count = [&](Outcome outcome) { return ledger.Streams(kind, outcome); };
    const int sessions = count(Outcome::Delivering) + count(Outcome::Ended) + count(Outcome::SeveralEnds) +
                         count(Outcome::SilentWithoutEnd) + count(Outcome::SilentUnderSlowLink) +
                         count(Outcome::ResumeRefused);
    std::printf("%-9s %7d %9d %6d %8d %10d %13d %9d\n", kind, sessions, count(Outcome::Refused), count(Outcome::Ended),
                count(Outcome::SeveralEnds), count(Outcome::SilentWithoutEnd), count(Outcome::SilentUnderSlowLink),
                count(Outcome::ResumeRefused));
    missedStreams += count(Outcome::SeveralEnds) + count(Outcome::SilentWithoutEnd);
  }
  const int unanswered = followed.posted - followed.answered;
  std::printf("\nalarms: %d posted by the cameras, %d answered, %d unanswered; %d reached the alarm callbacks\n",
              followed.posted, followed.answered, unanswered, delivered);

  std::printf("\n%-20s %6s %7s %9s %9s %6s\n", "entry point", "calls", "not 0", "worst s", "bound s", "over");
  int over = 0;
  for (const auto& [name, entry] : ledger.Entries()) {
    std::printf("%-20s %6d %7d %9.1f %9.0f %6d\n", name.c_str(), entry.calls, entry.failed, entry.worst, entry.bound,
                entry.over);
    over += entry.over;
  }
  const std::vector<std::string> notes = ledger.Notes();
  if (!notes.empty()) std::printf("\nnoted (the first %zu):\n", notes.size());
  for (const std::string& note : notes) std::printf("  %s\n", note.c_str());
  for (const std::string& line : unparked) std::printf("  workers not parked at %s\n", line.c_str());

  const double growth = atEnd.residentMb - atMiddle.residentMb;
  const int moreDescriptors = atEnd.descriptors - atMiddle.descriptors;
#if defined(__SANITIZE_ADDRESS__)
  const bool judgeMemory = false;  // the sanitizer's quarantine keeps freed memory resident
#else
  const bool judgeMemory = true;
#endif
  char text[160];
  std::snprintf(text, sizeof text, "%+.2f MB from the middle to the end (%+.1f MB since the start)%s", growth,
                atEnd.residentMb - atStart.residentMb, judgeMemory ? "" : "; not judged under AddressSanitizer");
  const std::vector<Target> targets = {
      {"memory flat over the second half (under 1 MB)", !judgeMemory || growth < kMemoryGrowthMb, text},
      {"descriptors flat over the second half", moreDescriptors <= 0,
       std::to_string(moreDescriptors) + " more (threads " + std::to_string(atEnd.threads - atMiddle.threads) + ")"},
      {"every stream delivering or ended with exactly one END", missedStreams == 0,
       std::to_string(missedStreams) + " not"},
      {"no block after its stream was stopped", late == 0, std::to_string(late) + " late blocks"},
      {"every alarm answered", followed.posted >= 0 && unanswered == 0,
       std::to_string(unanswered) + " unanswered of " + std::to_string(followed.posted)},
      {"no entry point past its bound", over == 0 && unparked.empty(),
       std::to_string(over) + " calls over" + (unparked.empty() ? "" : ", workers stuck")},
  };
  std::printf("\ntargets:\n");
  bool allMet = true;
  for (const Target& target : targets) {
    std::printf("  %-56s %-8s %s\n", target.what.c_str(), target.met ? "met" : "NOT MET", target.detail.c_str());
    allMet = allMet && target.met;
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    // The simulator must survive its own faults; a crash there spoils the run, whatever the plug-in did.
    std::printf("the cameras' process ended badly (%s %d)\n", WIFSIGNALED(status) ? "signal" : "exit status",
                WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
    allMet = false;
  }
  return allMet ? 0 : 1;
}
