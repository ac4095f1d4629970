// Opening a camera: identity over Digest-authenticated VAPIX, the brand check,
// credentials, unreachable cameras and answers that are not what they should be.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "LogCapture.h"
#include "PluginTestSupport.h"
#include "netcam_plugin.h"

namespace {

constexpr char kIdentityBody[] =
    "{              \"apiVersion\": \"1.3\",              \"context\": \"Client defined request ID\","
    "              \"method\": \"getAllProperties\"               }";

class OpenDevice : public ::testing::Test {
 protected:
  void SetUp() override {
    m_handle = DeviceObject_CreateInstance();
    ASSERT_NE(m_handle, nullptr);
  }
  void TearDown() override { DeviceObject_DestroyInstance(m_handle); }

  int32_t Open(const DeviceLoginParam& login) { return DeviceObject_OpenDevice(m_handle, &login); }

  PluginDeviceHandle m_handle = nullptr;
};

}  // namespace

TEST_F(OpenDevice, AxisCameraOpensAndCloses) {
  auto camera = StartCamera(HttpOnlyCamera());
  ASSERT_TRUE(camera);
  LogCapture log;
  ASSERT_EQ(Open(LoginFor(*camera)), 0) << log.All();
  EXPECT_TRUE(log.Contains("]OpenDevice success, ip[" + camera->Config().address + "], port[")) << log.All();

  // The identity request is a POST sent byte for byte.
  auto requests = camera->Requests();
  ASSERT_FALSE(requests.empty());
  const camsim::ReceivedRequest& last = requests.back();
  EXPECT_EQ(last.method, "POST");
  EXPECT_EQ(last.path, "/axis-cgi/basicdeviceinfo.cgi");
  EXPECT_EQ(last.body, kIdentityBody);
  EXPECT_EQ(last.status, 200);

  EXPECT_EQ(DeviceObject_CloseDevice(m_handle), 0);
  EXPECT_TRUE(log.Contains("]CloseDevice, ip[" + camera->Config().address + "]"));
  // Reopening repeats the identity check.
  camera->ClearRequests();
  EXPECT_EQ(Open(LoginFor(*camera)), 0);
  EXPECT_FALSE(camera->Requests().empty());
  EXPECT_EQ(log.All().find(camera->Config().password), std::string::npos) << "password reached the log";
}

TEST_F(OpenDevice, OnlyTheBrandAxisIsAccepted) {
  camsim::CameraConfig config = HttpOnlyCamera();
  config.brand = "Axis";
  auto camera = StartCamera(config);
  ASSERT_TRUE(camera);
  LogCapture log;
  EXPECT_EQ(Open(LoginFor(*camera)), -1);
  EXPECT_TRUE(log.Contains("]Device type is not supported, device-type[Axis].[")) << log.All();

  config.brand = "";  // the camera's answer carries no Brand at all
  auto anonymous = StartCamera(config);
  ASSERT_TRUE(anonymous);
  log.Clear();
  EXPECT_EQ(Open(LoginFor(*anonymous)), -1);
  EXPECT_TRUE(log.Contains("]Device type is not supported, device-type[].[")) << log.All();
}

TEST_F(OpenDevice, CredentialsDecide) {
  auto camera = StartCamera(HttpOnlyCamera());
  ASSERT_TRUE(camera);
  LogCapture log;
  DeviceLoginParam login = LoginFor(*camera);
  std::strcpy(login.password, "wrong");
  EXPECT_EQ(Open(login), -1);
  EXPECT_TRUE(log.Contains("rsp-code[401]")) << log.All();
  EXPECT_TRUE(log.Contains("]GetDeviceInfo failed.[")) << log.All();

  // Fifteen characters reach the camera; sixteen do not.
  camera->SetCredentials("root", "abcdefghijklmno");
  login = MakeLogin(camera->Config().address, camera->HttpPort(), "root", "abcdefghijklmno");
  EXPECT_EQ(Open(login), 0) << log.All();
  camera->SetCredentials("root", "abcdefghijklmnop");
  login = MakeLogin(camera->Config().address, camera->HttpPort(), "root", "abcdefghijklmnop");
  log.Clear();
  EXPECT_EQ(Open(login), -1);
  EXPECT_TRUE(log.Contains("rsp-code[401]")) << log.All();
  EXPECT_EQ(log.All().find("abcdefghijklmnop"), std::string::npos) << "password reached the log";
}

TEST_F(OpenDevice, UnreachableCameraFails) {
  LogCapture log;
  const std::string address = netcam_test::UniqueLoopbackAddress();  // nothing listens there
  EXPECT_EQ(Open(MakeLogin(address, 80, "root", "pass")), -1);
  EXPECT_TRUE(log.Contains("]curl_easy_perform failed, handle[")) << log.All();
  EXPECT_TRUE(log.Contains("]GetDeviceInfo failed, url[http://" + address + ":80/axis-cgi/basicdeviceinfo.cgi]"))
      << log.All();
}

TEST_F(OpenDevice, MalformedIdentityAnswersAreRefused) {
  auto camera = StartCamera(HttpOnlyCamera());
  ASSERT_TRUE(camera);
  const DeviceLoginParam login = LoginFor(*camera);
  LogCapture log;

  struct Case {
    const char* name;
    camsim::Fault fault;
    const char* expectedLog;
  };
  using Kind = camsim::Fault::Kind;
  camsim::Fault huge{Kind::Huge};
  huge.size = 8 * 1024 * 1024;
  const Case cases[] = {
      {"truncated JSON", {Kind::Garbage, 0, "{\"data\": {\"propertyList\": "}, "]Response data is invalid, url["},
      {"empty body", {Kind::EmptyBody}, "rsp-code[200]"},
      {"server error", {Kind::Status, 500, "Internal Error"}, "rsp-code[500], rsp-url["},
      {"dropped connection", {Kind::Drop}, "]curl_easy_perform failed"},
      {"huge filler", huge, "]Response data is invalid, url["},
  };
  for (const Case& c : cases) {
    camera->ClearScripts();
    camera->InjectFault("/axis-cgi/basicdeviceinfo.cgi", c.fault);
    log.Clear();
    EXPECT_EQ(Open(login), -1) << c.name;
    EXPECT_TRUE(log.Contains(c.expectedLog)) << c.name << "\n" << log.All();
    EXPECT_TRUE(log.Contains("]GetDeviceInfo failed.[")) << c.name;
  }
  // A JSON answer with a different shape yields empty fields: refused by brand.
  camera->ClearScripts();
  camera->Script("/axis-cgi/basicdeviceinfo.cgi", camsim::ScriptedAnswer{200, "application/json", "[1,2,3]", {}});
  log.Clear();
  EXPECT_EQ(Open(login), -1);
  EXPECT_TRUE(log.Contains("device-type[]")) << log.All();
}

// A camera answer larger than the memory the process has left: storing it
// throws std::bad_alloc, and the entry point answers -1 with one line instead
// of letting the exception into the platform.
TEST_F(OpenDevice, AnAnswerBeyondTheMemoryLeftFailsTheCallNotTheProcess) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizers' allocators end the process instead of throwing std::bad_alloc";
#endif
  auto camera = StartCamera(HttpOnlyCamera());
  ASSERT_TRUE(camera);
  camsim::Fault huge{camsim::Fault::Kind::Huge};
  huge.size = 60u << 20;  // within the answer cap, beyond the memory left below
  camera->InjectFault("/axis-cgi/basicdeviceinfo.cgi", huge);
  const DeviceLoginParam login = LoginFor(*camera);
  const pid_t child = fork();
  if (child == 0) {
    // Alone in its copy of the process (the camera serves from the parent),
    // with 32 MiB of address space left to grow into.
    alarm(60);
    LogCapture log;
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t cap = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (32u << 20);
    const rlimit limit{cap, cap};
    setrlimit(RLIMIT_AS, &limit);
    const bool failed = Open(login) == -1;
    const size_t lines = log.Matching("[DeviceObject_OpenDevice]Exception stopped, what[std::bad_alloc]").size();
    _exit(failed && lines == 1 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status;
}
