// The camera's HTTP core through libcurl, as the plug-in talks to it:
// authentication, scripted answers, injected faults, the request log.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <thread>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

constexpr const char* kInfo = "/axis-cgi/basicdeviceinfo.cgi";
const std::string kIdentityBody = R"({"apiVersion": "1.3", "method": "getAllProperties"})";

using HttpCore = CameraTest;

TEST_F(HttpCore, DigestWithTheCameraRealmAndTheRightCredentialsOnly) {
  Reply challenge = Perform(Url(kInfo), nullptr, {.auth = Auth::None});
  EXPECT_EQ(challenge.status, 401);
  EXPECT_NE(challenge.headers.find("WWW-Authenticate: Digest realm=\"AXIS_B8A44F9D7D55\""), std::string::npos);
  EXPECT_NE(challenge.headers.find("qop=\"auth\""), std::string::npos);
  EXPECT_EQ(challenge.headers.find("Basic"), std::string::npos);  // Digest only
  EXPECT_EQ(PostPath(kInfo, kIdentityBody).status, 200);          // CURLAUTH_ANY picks Digest
  EXPECT_EQ(Perform(Url(kInfo), nullptr, {.password = "wrong"}).status, 401);
  EXPECT_EQ(Perform(Url(kInfo), &kIdentityBody, {.user = "admin", .auth = Auth::Any}).status, 401);
  // Credentials change at run time; a 40-character password works as on the camera.
  const RequestOptions changed{"operator", "p@ss:w0rd/with\"odd'chars-and-40-characters"};
  camera_->SetCredentials(changed.user, changed.password);
  EXPECT_EQ(Perform(Url("/axis-cgi/x.cgi"), nullptr, changed).status, 404);
  EXPECT_EQ(GetPath("/axis-cgi/x.cgi").status, 401);  // the old credentials are gone
}

TEST_F(HttpCore, ScriptedAnswersMatchByPrefixLatestFirst) {
  camera_->Script("/axis-cgi/", {500, "text/plain", "general", {}});
  camera_->Script("/axis-cgi/record/", {200, "text/xml", "<root/>", {{"X-Extra", "1"}}});
  Reply record = GetPath("/axis-cgi/record/list.cgi?recordingid=all");
  EXPECT_EQ(record.body + " " + record.contentType, "<root/> text/xml");
  EXPECT_EQ(GetPath("/axis-cgi/param.cgi").body, "general");
  camera_->ClearScripts();
  EXPECT_EQ(PostPath(kInfo, kIdentityBody).status, 200);
}

TEST_F(HttpCore, InjectedFaultsAnswerAsAsked) {
  using Kind = camsim::Fault::Kind;
  struct Case {
    camsim::Fault fault;
    long status;  // -1: none of its own (libcurl keeps the 401 leg's)
    int curlCode;
    long bodySize;  // -1: any, but not empty; -2: half the camera's answer
  } cases[] = {
      {{Kind::Status, 503, "busy"}, 503, CURLE_OK, 4},
      {{Kind::EmptyBody}, 200, CURLE_OK, 0},
      {{Kind::Garbage}, 200, CURLE_OK, -1},
      {{.kind = Kind::Huge, .size = 3 * 1024 * 1024 + 7}, 200, CURLE_OK, 3 * 1024 * 1024 + 7},
      {{.kind = Kind::Delay, .delay = std::chrono::milliseconds(50)}, 200, CURLE_OK, -1},
      {{.kind = Kind::Redirect, .location = "/axis-cgi/moved.cgi"}, 302, CURLE_OK, 0},
      {{.kind = Kind::Reset}, -1, CURLE_RECV_ERROR, 0},  // before authentication: the 401 leg is reset
      {{.kind = Kind::Cut}, 200, CURLE_PARTIAL_FILE, -2},
      {{.kind = Kind::Slow, .bytesPerSecond = 1000}, 200, CURLE_OK, -1},
      // Every time: libcurl retries once on a fresh connection when a reused one dies silently.
      {{Kind::Drop}, -1, CURLE_GOT_NOTHING, 0},
  };
  const size_t whole = PostPath(kInfo, kIdentityBody).body.size();
  for (const Case& c : cases) {
    camera_->ClearScripts();
    camera_->InjectFault(kInfo, c.fault);
    const auto start = std::chrono::steady_clock::now();
    Reply reply = PostPath(kInfo, kIdentityBody);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    SCOPED_TRACE(camsim::KindName(c.fault.kind));
    EXPECT_TRUE(c.status < 0 || reply.status == c.status) << reply.status;
    EXPECT_EQ(reply.curlCode, c.curlCode);
    EXPECT_TRUE(c.bodySize == -1   ? !reply.body.empty()
                : c.bodySize == -2 ? reply.body.size() == whole / 2
                                   : reply.body.size() == static_cast<size_t>(c.bodySize));
    const double paced = c.fault.bytesPerSecond > 0 ? double(whole - 100) / double(c.fault.bytesPerSecond) : 0;
    EXPECT_GE(seconds, paced);
    EXPECT_EQ(reply.headers.find("Location: " + Url("/axis-cgi/moved.cgi")) != std::string::npos, c.status == 302);
  }
  EXPECT_EQ(camera_->Requests().back().status, 0);  // the dropped request is logged unanswered
  camera_->ClearScripts();
  camera_->InjectFault(kInfo, {.kind = Kind::Status, .status = 500, .times = 2});
  for (long expected : {500, 500, 200}) EXPECT_EQ(PostPath(kInfo, kIdentityBody).status, expected);
}

// Frozen, the camera takes requests and answers none until it thaws; Stop
// ends what still waits, for a freeze as for a long delay.
TEST_F(HttpCore, AFrozenCameraAnswersOnceThawedAndStopEndsWhatWaits) {
  using Kind = camsim::Fault::Kind;
  const int frozen = camera_->InjectFault("", {.kind = Kind::Freeze});
  Reply hung = Perform(Url(kInfo), &kIdentityBody, {.auth = Auth::Any, .timeoutMs = 1000});
  EXPECT_EQ(hung.curlCode, CURLE_OPERATION_TIMEDOUT);
  EXPECT_EQ(hung.status, 0);  // not even the 401 leg
  camera_->RemoveFault(frozen);
  EXPECT_EQ(PostPath(kInfo, kIdentityBody).status, 200);
  camera_->ScheduleFault("", {.kind = Kind::Freeze}, std::chrono::milliseconds(0), std::chrono::seconds(1));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(PostPath(kInfo, kIdentityBody).status, 200);  // held until the schedule thaws the camera
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
  for (const camsim::Fault& fault :
       {camsim::Fault{.kind = Kind::Delay, .delay = std::chrono::hours(1)}, camsim::Fault{.kind = Kind::Freeze}}) {
    Restart({});
    camera_->InjectFault("/axis-cgi/", fault);
    Reply reply;
    std::thread client([&] { reply = GetPath("/axis-cgi/slow.cgi"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // let the request reach the camera
    camera_->Stop();
    client.join();  // would hang for an hour if Stop waited for the fault
    EXPECT_NE(reply.curlCode, CURLE_OK);
  }
}

TEST_F(HttpCore, RequestLogHoldsWhatArrivedAndBodiesOverTheLimitGet413) {
  PostPath("/axis-cgi/basicdeviceinfo.cgi?x=1&y=%20", kIdentityBody);
  const auto requests = camera_->Requests();
  ASSERT_GE(requests.size(), 2u);  // the 401 leg, then the authenticated request
  EXPECT_EQ(requests.front().status, 401);
  const auto& last = requests.back();
  EXPECT_EQ(last.method + " " + last.path + "?" + last.query, "POST /axis-cgi/basicdeviceinfo.cgi?x=1&y=%20");
  EXPECT_EQ(last.headers.count("authorization"), 1u);
  EXPECT_EQ(last.body + " " + std::to_string(last.status), kIdentityBody + " 200");
  camsim::CameraConfig config;
  config.maxBodyBytes = 4096;
  Restart(config);
  EXPECT_EQ(PostPath(kInfo, std::string(5000, 'x')).status, 413);
  EXPECT_EQ(PostPath(kInfo, kIdentityBody).status, 200);  // and the camera carries on
}

}  // namespace
}  // namespace camsim_test
