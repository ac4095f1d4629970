// The VAPIX request rules: which answers count as success for GET and POST,
// redirects, and what reaches the log.
#include <gtest/gtest.h>

#include "LogCapture.h"
#include "PluginTestSupport.h"
#include "session/axis_device_object_implement.h"

namespace {

class Transport : public ::testing::Test {
 protected:
  void SetUp() override {
    m_camera = StartCamera(HttpOnlyCamera());
    ASSERT_TRUE(m_camera);
    m_base = "http://" + m_camera->Config().address + ":" + std::to_string(m_camera->HttpPort());
  }
  bool Get(std::string& out, const std::string& path) {
    return m_device.SendHttpGetReqWithRsp(out, m_base + path, m_camera->Config().user, m_camera->Config().password);
  }
  bool Post(std::string& out, const std::string& path, const std::string& body) {
    return m_device.SendHttpPostReqWithRsp(out, m_base + path, body, m_camera->Config().user,
                                           m_camera->Config().password, "application/json");
  }
  void Answer(const std::string& path, int status, const std::string& body,
              std::map<std::string, std::string> headers = {}) {
    m_camera->Script(path, camsim::ScriptedAnswer{status, "text/plain", body, std::move(headers)});
  }

  std::unique_ptr<camsim::Camera> m_camera;
  std::string m_base;
  CPlgDeviceObjectImplement m_device;
};

}  // namespace

TEST_F(Transport, WhichAnswersCountAsSuccess) {
  // GET accepts 200 with a body, and 204; POST only 200 with a body.
  const struct {
    bool post;
    int status;
    const char* body;
    bool ok;
  } cases[] = {
      {false, 200, "answer", true}, {false, 204, "", true},
      {false, 200, "", false},      {false, 404, "Not here", false},
      {true, 200, "answer", true},  {true, 204, "", false},
      {true, 200, "", false},       {true, 500, "Internal trouble", false},
  };
  LogCapture log;
  for (const auto& c : cases) {
    Answer("/axis-cgi/x.cgi", c.status, c.body);
    std::string out = "untouched";
    EXPECT_EQ(c.post ? Post(out, "/axis-cgi/x.cgi", "{}") : Get(out, "/axis-cgi/x.cgi"), c.ok) << c.post << c.status;
    if (c.ok) {
      EXPECT_EQ(out, c.status == 204 ? "untouched" : c.body);
    }
  }
  const std::string url = m_base + "/axis-cgi/x.cgi";
  EXPECT_TRUE(log.Contains("]Get send failed, rsp-code[404], rsp-url[" + url + "], rsp-data[Not here].[")) << log.All();
  EXPECT_TRUE(log.Contains("rsp-code[500], rsp-url[" + url + "], rsp-data[Internal trouble]")) << log.All();
}

TEST_F(Transport, GetFollowsRedirectsPostDoesNot) {
  Answer("/axis-cgi/target.cgi", 200, "arrived");
  Answer("/axis-cgi/moved.cgi", 302, "", {{"Location", m_base + "/axis-cgi/target.cgi"}});
  std::string out;
  EXPECT_TRUE(Get(out, "/axis-cgi/moved.cgi"));
  EXPECT_EQ(out, "arrived");
  auto requests = m_camera->Requests();
  ASSERT_GE(requests.size(), 2u);
  EXPECT_EQ(requests.back().path, "/axis-cgi/target.cgi");
  EXPECT_EQ(requests.back().method, "GET");

  LogCapture log;
  m_camera->ClearRequests();
  out.clear();
  EXPECT_FALSE(Post(out, "/axis-cgi/moved.cgi", "{\"method\":\"x\"}"));
  EXPECT_TRUE(log.Contains("rsp-code[302]")) << log.All();
  for (const auto& request : m_camera->Requests()) EXPECT_NE(request.path, "/axis-cgi/target.cgi");

  // A camera redirecting in a circle is given up on after five hops.
  Answer("/axis-cgi/loop.cgi", 302, "", {{"Location", m_base + "/axis-cgi/loop.cgi"}});
  m_camera->ClearRequests();
  log.Clear();
  EXPECT_FALSE(Get(out, "/axis-cgi/loop.cgi"));
  size_t redirected = 0;  // the redirects followed, and the one that was not
  for (const auto& request : m_camera->Requests()) redirected += request.status == 302;
  EXPECT_LE(redirected, 6u);
  EXPECT_EQ(log.Matching("]Redirect limit reached, limit[5], url[" + m_base + "/axis-cgi/loop.cgi]").size(), 1u)
      << log.All();
}

TEST_F(Transport, PostSendsBodyAndContentTypeWithDigest) {
  Answer("/axis-cgi/echo.cgi", 200, "ok");
  std::string out;
  const std::string body = std::string("{\"a\":\"\xc3\xa9\",\"b\":\"") + std::string(3000, 'x') + "\"}";
  ASSERT_TRUE(Post(out, "/axis-cgi/echo.cgi", body));
  const auto requests = m_camera->Requests();
  ASSERT_FALSE(requests.empty());
  EXPECT_EQ(requests.back().body, body);
  EXPECT_EQ(requests.back().headers.at("content-type"), "application/json");
  EXPECT_NE(requests.back().headers.at("authorization").find("Digest "), std::string::npos);
}

TEST_F(Transport, NoCredentialsOrNoUrl) {
  LogCapture log;
  std::string out;
  EXPECT_FALSE(m_device.SendHttpGetReqWithRsp(out, m_base + "/axis-cgi/basicdeviceinfo.cgi", "root", ""));
  EXPECT_TRUE(log.Contains("rsp-code[401]")) << log.All();
  EXPECT_EQ(m_camera->Requests().back().headers.count("authorization"), 0u);  // no authentication attempted
  EXPECT_FALSE(m_device.SendHttpGetReqWithRsp(out, "", "root", "pass"));
  EXPECT_TRUE(log.Contains("[CHttpClientCurl::GetSend]curl send failed, handle or url is null")) << log.All();
}
