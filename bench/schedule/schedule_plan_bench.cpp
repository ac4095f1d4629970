// A full-week plan of 21 segments (three a day) written to the simulated
// camera and read back: wall time against one SOAP round trip measured in the
// same run, and the requests the camera received against the number the
// mapping needs (3 reads, one removal per old object, 3 adds per segment;
// reading back is 3 reads). Digest challenges are counted apart.
//   schedule_plan_bench [--rounds R]
// Target: not one request beyond the mapping's.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "LoopbackAddress.h"
#include "camera_sim/Camera.h"
#include "session/axis_device_object_implement.h"

namespace {

using Clock = std::chrono::steady_clock;

double Ms(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

struct Counted {
  size_t answered = 0;
  size_t challenges = 0;
};

Counted Count(camsim::Camera& camera) {
  Counted counted;
  for (const auto& request : camera.Requests()) {
    if (request.path != "/vapix/services") continue;
    (request.status == 401 ? counted.challenges : counted.answered)++;
  }
  camera.ClearRequests();
  return counted;
}

}  // namespace

int main(int argc, char** argv) {
  int rounds = 5;
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], "--rounds") == 0) rounds = std::max(1, std::atoi(argv[++i]));
  }
  camsim::CameraConfig config;
  config.address = netcam_test::UniqueLoopbackAddress(0);
  config.rtspPort = 0;
  camsim::Camera camera(config);
  std::string error;
  if (!camera.Start(&error)) {
    std::fprintf(stderr, "camera simulator did not start: %s\n", error.c_str());
    return 1;
  }
  DeviceLoginParam login{};
  std::strncpy(login.ip, config.address.c_str(), sizeof login.ip - 1);
  login.port = camera.HttpPort();
  std::strncpy(login.user, config.user.c_str(), sizeof login.user - 1);
  std::strncpy(login.password, config.password.c_str(), sizeof login.password - 1);
  CPlgDeviceObjectImplement device;
  if (device.OpenDevice(&login) != 0) return 1;

  RecordConfigInfo plan{};
  std::memset(plan.halfHours, '0', sizeof plan.halfHours);
  for (int day = 0; day < 7; ++day) {
    std::memset(&plan.halfHours[day][0], '1', 12);   // 00:00-06:00
    std::memset(&plan.halfHours[day][16], '1', 8);   // 08:00-12:00
    std::memset(&plan.halfHours[day][26], '1', 10);  // 13:00-18:00
  }
  const size_t segments = 21;
  camera.ClearRequests();

  std::vector<double> anchor, firstWrite, rewrite, read;
  Counted firstCount, rewriteCount, readCount;
  bool same = true;
  for (int round = 0; round < rounds; ++round) {
    std::map<int32_t, ActionRuleRecord> rules;
    Clock::time_point start = Clock::now();
    if (!device.GetActionRules(rules)) return 1;
    anchor.push_back(Ms(Clock::now() - start));
    Count(camera);

    RecordConfigInfo empty = plan;
    std::memset(empty.halfHours, '0', sizeof empty.halfHours);
    if (device.SetRecordConfig(&device, &empty) != 0) return 1;  // no plug-in objects left
    Count(camera);
    start = Clock::now();
    if (device.SetRecordConfig(&device, &plan) != 0) return 1;
    firstWrite.push_back(Ms(Clock::now() - start));
    firstCount = Count(camera);
    start = Clock::now();
    if (device.SetRecordConfig(&device, &plan) != 0) return 1;
    rewrite.push_back(Ms(Clock::now() - start));
    rewriteCount = Count(camera);
    RecordConfigInfo back{};
    start = Clock::now();
    if (device.GetRecordConfig(&device, &back) != 0) return 1;
    read.push_back(Ms(Clock::now() - start));
    readCount = Count(camera);
    same = same && std::memcmp(back.halfHours, plan.halfHours, sizeof plan.halfHours) == 0;
  }
  const size_t needFirst = 3 + 3 * segments, needRewrite = 3 + 3 * segments + 3 * segments, needRead = 3;
  const double unit = Median(anchor);
  std::printf("one SOAP round trip (anchor): %.2f ms median of %d\n", unit, rounds);
  std::printf("%-28s %9s %7s %9s %9s %10s\n", "step", "ms", "x rt", "requests", "required", "challenges");
  auto line = [&](const char* step, const std::vector<double>& times, const Counted& counted, size_t needed) {
    std::printf("%-28s %9.2f %7.1f %9zu %9zu %10zu\n", step, Median(times), Median(times) / unit, counted.answered,
                needed, counted.challenges);
  };
  line("write 21 segments (fresh)", firstWrite, firstCount, needFirst);
  line("write 21 segments (replace)", rewrite, rewriteCount, needRewrite);
  line("read back", read, readCount, needRead);
  const bool exact =
      firstCount.answered == needFirst && rewriteCount.answered == needRewrite && readCount.answered == needRead;
  std::printf("plan read back %s; requests %s\n", same ? "identical" : "DIFFERENT",
              exact ? "exactly as required" : "BEYOND what is required");
  return same && exact ? 0 : 1;
}
