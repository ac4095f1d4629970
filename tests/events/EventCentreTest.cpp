// The event centre inside the loaded plug-in: where it listens, how alarms are
// routed and answered, their order under a flood, what hostile peers cannot
// do to it, and its life across Init and Fini.
#include <ctime>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "EventTestSupport.h"
#include "HostSystem.h"
#include "LoopbackAddress.h"
#include "kor.h"

namespace events_test {
namespace {

using EventCentre = StagedPlugin;
using netcam_test::UniqueLoopbackAddress;

std::string Json(const char* status, const char* message) {
  return std::string("{\n\t\"status\": \"") + status + "\",\n\t\"msg\": \"" + message + "\"\n}";
}
const std::string kSuccess = Json("Success", "Success"), kNobody = Json("Failed", "No user subscribes");

bool Listens(const std::string& address, uint16_t port) {
  const Socket socket = Connect(UniqueLoopbackAddress(), port, address);
  CloseSocket(socket);
  return socket != kNoSocket;
}

TEST_F(EventCentre, SetupXmlDecidesWhetherAndWhereItListens) {
  ASSERT_TRUE(StartCentre());  // to find a free port
  const std::pair<std::string, bool> cases[] = {
      {"", false},
      {SetupFor(m_port), true},
      {"<Configs><AxisPort><Event> " + std::to_string(m_port + 65536) + "x</Event></AxisPort></Configs>", true},
      {"<Configs><Event>8090</Event></Configs>", false},
      {"<Configs><AxisPort><Event>none</Event></AxisPort></Configs>", false},
  };
  for (const auto& [setup, listens] : cases) {
    Fini();
    WriteSetup(setup);
    EXPECT_EQ(Init(nullptr), 0) << setup;
    EXPECT_EQ(Listens("127.0.0.1", m_port), listens) << setup;
    EXPECT_FALSE(Listens(UniqueLoopbackAddress(), m_port));  // 127.0.0.1 only
    EXPECT_FALSE(Listens("127.0.0.1", 27691));               // the default is never used
  }
}

TEST_F(EventCentre, RoutesAlarmsBySenderAndAnswersEach) {
  ASSERT_TRUE(StartCentre());
  Recorder recorder, replaced;
  const std::string a = UniqueLoopbackAddress(), b = UniqueLoopbackAddress();
  PluginDeviceHandle devices[] = {Device(a, &replaced), Device(a, &recorder), Device(b, &replaced), Device(b)};
  EXPECT_EQ(SetEventCallBack(devices[2], nullptr, nullptr), 0);
  EXPECT_EQ(SetEventCallBack(devices[3], nullptr, nullptr), 0);  // an address not in the table
  const std::string cases[][3] = {{a, kMotion, kSuccess},
                                  {b, kMotion, kNobody},
                                  {a, std::string(kMotion) + "?id=1", Json("Failed", "Unsupported alarm")},
                                  {a, std::string(kMotion) + "/", Json("Failed", "Unsupported alarm")},
                                  {a, "/axis/uploadalarm/other", Json("Failed", "Unsupported alarm")}};
  for (const auto& [from, path, body] : cases) {
    const time_t before = time(nullptr);
    const Reply reply = Alarm(from, path);
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.body, body) << path;
    EXPECT_NE(reply.headers.find("Content-Type: application/xml; charset=\"UTF-8\""), std::string::npos);
    const auto alarms = recorder.Take();
    ASSERT_EQ(alarms.size(), body == kSuccess ? 1u : 0u) << path;
    if (alarms.empty()) continue;
    const auto& [device, record] = alarms[0];
    EXPECT_EQ(device, devices[1]);        // the later subscription on the address
    const int32_t* t = record.localTime;  // us, s, min, h, mday, mon, year - 1900; then dst, UTC offset
    const kor::CivilTime local{t[6] + 1900, t[5] + 1, t[4], t[3], t[2], t[1]};
    // The local fields less the UTC offset are the moment of reception.
    const int64_t received = kor::UnixSecondsFromCivil(local) - record.localTimeZone[1];
    EXPECT_TRUE(received >= before && received <= time(nullptr) && t[0] >= 0 && t[0] < 1000000);
    EXPECT_TRUE(record.localTimeZone[0] == 0 || record.localTimeZone[0] == 1);  // daylight saving or not
    PluginAlarmRecord expected{};  // the time as received, the constants, zero elsewhere
    std::memcpy(expected.localTime, t, sizeof expected.localTime);
    std::memcpy(expected.localTimeZone, record.localTimeZone, sizeof expected.localTimeZone);
    expected.alarmKind = 131331;
    expected.field1072 = 3;
    expected.field1076 = 5;
    EXPECT_EQ(std::memcmp(&record, &expected, sizeof expected), 0);
  }
  EXPECT_TRUE(replaced.Take().empty());
  EXPECT_EQ(SetEventCallBack(devices[1], nullptr, nullptr), 0);
  EXPECT_EQ(Alarm(a).body, kNobody);
  for (PluginDeviceHandle device : devices) Destroy(device);
}

double ResidentMegabytes() { return static_cast<double>(CurrentProcessUsage().residentBytes) / (1 << 20); }

TEST_F(EventCentre, HostileTrafficNeitherCrashesNorWedgesItAndAFloodKeepsItsOrder) {
  ASSERT_TRUE(StartCentre());
  Recorder recorder;
  const std::string good = UniqueLoopbackAddress();
  std::map<PluginDeviceHandle, std::string> cameras{{Device(good, &recorder), good}};
  const double memoryBefore = ResidentMegabytes();
  const std::string big(70 * 1024, 'x');
  const std::pair<std::string, int> refused[] = {
      // status 0: closed without an answer
      {Post(kMotion, big), 413},
      {"POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n11800\r\n" + big + "\r\n0\r\n\r\n", 0},
      {"GET / HTTP/1.1\r\nHost: h\r\nno colon\r\n\r\n", 400},
      {"GET /" + std::string(40000, 'a') + " HTTP/1.1\r\nHost: h\r\n\r\n", 414},
      {"GET / HTTP/9.9\r\nHost: h\r\n\r\n", 505}};
  for (const auto& [request, status] : refused)
    EXPECT_EQ(Send(UniqueLoopbackAddress(), m_port, request).status, status);
  // Idle connections from ten addresses, well past the server's 1,024 (Wine's
  // sockets cost milliseconds each, so fewer there), and slow senders trickling a request.
#ifdef _WIN32
  constexpr int kIdleConnections = 2000;
#else
  constexpr int kIdleConnections = 10000;
#endif
  std::vector<Socket> held;
  std::vector<std::string> attackers(10);
  for (std::string& attacker : attackers) attacker = UniqueLoopbackAddress();
  for (int i = 0; i < kIdleConnections; ++i) held.push_back(Connect(attackers[i % 10], m_port));
  std::vector<Socket> slow;
  for (int i = 0; i < 20; ++i) slow.push_back(Connect(UniqueLoopbackAddress(), m_port));
  for (size_t byte = 0; byte < 10; ++byte, std::this_thread::sleep_for(std::chrono::milliseconds(50)))
    for (Socket socket : slow) netcam_test::SendBytes(socket, &Post(kMotion)[byte], 1);
  EXPECT_EQ(Alarm(good).body, kSuccess);
  // A flood from 100 subscribed addresses (10 alarms each) while the camera keeps posting.
  std::vector<std::string> flooders(100);
  for (std::string& flooder : flooders) cameras[Device(flooder = UniqueLoopbackAddress(), &recorder)] = flooder;
  std::atomic<int> answered{0};
  std::vector<std::thread> flood;
  for (int thread = 0; thread < 4; ++thread)
    flood.emplace_back([&, thread] {
      for (int n = 0; n < 250; ++n) answered += Alarm(flooders[thread * 25 + n % 25]).body == kSuccess;
    });
  for (int n = 0; n < 20; ++n) answered += Alarm(good).body == kSuccess;
  for (std::thread& thread : flood) thread.join();
  EXPECT_EQ(answered, 1020);
  EXPECT_LT(ResidentMegabytes() - memoryBefore, 200.0);
  for (Socket socket : held) CloseSocket(socket);
  for (Socket socket : slow) CloseSocket(socket);
  // One callback at a time, in the order the log shows reception; replies in that order too
  // (links are numbered as requests arrive).
  EXPECT_FALSE(recorder.overlapped);
  std::vector<std::string> delivered;
  for (const auto& alarm : recorder.Take()) delivered.push_back(cameras[alarm.first]);
  EXPECT_EQ(delivered.size(), 1021u);
  std::stringstream log;
  log << std::ifstream(m_stage + "/plugin.log").rdbuf();
  const std::string text = log.str();
  std::map<std::string, std::vector<std::string>> columns;
  const std::regex line(
      R"((Receive axis HTTP event, ip|alarm begin, ip|SynSend success, ret\[0\], handle)\[([0-9.]+)\])");
  for (auto it = std::sregex_iterator(text.begin(), text.end(), line); it != std::sregex_iterator(); ++it)
    columns[(*it)[1]].push_back((*it)[2]);
  EXPECT_EQ(columns["Receive axis HTTP event, ip"], delivered);
  EXPECT_EQ(columns["alarm begin, ip"], delivered);
  const std::vector<std::string>& links = columns["SynSend success, ret[0], handle"];
  EXPECT_EQ(links.size(), 1021u);
  EXPECT_TRUE(std::is_sorted(links.begin(), links.end(), [](auto& x, auto& y) { return std::stoi(x) < std::stoi(y); }));
  for (const auto& entry : cameras) Destroy(entry.first);
}

// Alarms keep arriving while the plug-in starts and stops and device objects
// come and go: none reaches a destroyed object or arrives after Fini.
std::mutex g_liveMutex;
std::set<PluginDeviceHandle> g_live;  // subscribed and not destroyed, while initialised
std::atomic<int> g_stray{0}, g_calls{0};

int32_t NETCAM_CALL CheckLive(PluginDeviceHandle device, uint32_t, uint32_t, const void*, intptr_t, void*) {
  std::lock_guard<std::mutex> lock(g_liveMutex);
  g_stray += g_live.count(device) == 0;
  ++g_calls;
  return 0;
}

TEST_F(EventCentre, InitFiniCyclesWithAlarmsInFlight) {
  const std::string camera = UniqueLoopbackAddress();
  std::atomic<bool> stop{false};
  auto live = [](PluginDeviceHandle device, bool in) {
    std::lock_guard<std::mutex> lock(g_liveMutex);
    g_live.erase(device);
    if (in) g_live.insert(device);
  };
  ASSERT_TRUE(StartCentre());
  std::thread poster([&] {
    while (!stop)
      if (Alarm(camera).status == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  });
  for (int cycle = 0; cycle < 200; ++cycle) {
    ASSERT_EQ(cycle == 0 ? 0 : Init(nullptr), 0);
    PluginDeviceHandle device = Device(camera);
    live(device, true);
    SetEventCallBack(device, &CheckLive, nullptr);
    std::this_thread::sleep_for(std::chrono::milliseconds(cycle % 2 == 0 ? 5 : 0));
    if (cycle % 3 == 0) Fini(), live(device, false);  // destroyed after Fini every third cycle
    Destroy(device);
    if (cycle % 3 != 0) live(device, false), Fini();
  }
  m_initialised = false;
  stop = true;
  poster.join();
  EXPECT_EQ(g_stray, 0);
  EXPECT_GT(g_calls, 0);
}

}  // namespace
}  // namespace events_test
