// The camera's HTTP core through libcurl, as the plug-in talks to it:
// authentication, unknown paths, scripted answers, faults, the request log.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <thread>

#include "CameraTestSupport.h"

namespace camsim_test {
namespace {

constexpr const char* kIdentityBody =
    "{              \"apiVersion\": \"1.3\",              \"context\": \"Client defined request ID\",              "
    "\"method\": \"getAllProperties\"               }";

using HttpCore = CameraTest;

TEST_F(HttpCore, DigestGetAndAnyAuthPostAreAccepted) {
  Reply get = GetPath("/axis-cgi/nothing-here.cgi");  // authenticated, then 404
  EXPECT_EQ(get.status, 404);
  Reply post = PostPath("/axis-cgi/basicdeviceinfo.cgi", kIdentityBody);
  EXPECT_EQ(post.status, 200);
  EXPECT_NE(post.body.find("\"SerialNumber\":\"B8A44F9D7D55\""), std::string::npos) << post.body;
}

TEST_F(HttpCore, VapixPathsWantDigestWithTheCameraRealm) {
  for (const char* path : {"/axis-cgi/basicdeviceinfo.cgi", "/axis-cgi/unknown.cgi", "/vapix/services"}) {
    RequestOptions anonymous;
    anonymous.auth = Auth::None;
    Reply reply = Get(Url(path), anonymous);
    EXPECT_EQ(reply.status, 401) << path;
    EXPECT_NE(reply.headers.find("WWW-Authenticate: Digest realm=\"AXIS_B8A44F9D7D55\""), std::string::npos)
        << reply.headers;
    EXPECT_NE(reply.headers.find("qop=\"auth\""), std::string::npos);
    EXPECT_EQ(reply.headers.find("Basic"), std::string::npos);  // Digest only
  }
}

TEST_F(HttpCore, WrongCredentialsGet401WhateverTheScheme) {
  RequestOptions wrong;
  wrong.password = "wrong";
  EXPECT_EQ(Get(Url("/axis-cgi/basicdeviceinfo.cgi"), wrong).status, 401);
  wrong.auth = Auth::Any;
  EXPECT_EQ(Post(Url("/axis-cgi/basicdeviceinfo.cgi"), kIdentityBody, wrong).status, 401);
  wrong.password = "pass";
  wrong.user = "admin";
  EXPECT_EQ(Post(Url("/axis-cgi/basicdeviceinfo.cgi"), kIdentityBody, wrong).status, 401);
}

TEST_F(HttpCore, CredentialsChangeAtRunTimeAndLongPasswordsWork) {
  for (const std::string password : {"0123456789abcdef", "p@ss:w0rd/with\"odd'chars-and-40-characters"}) {
    camera_->SetCredentials("operator", password);
    RequestOptions options;
    options.user = "operator";
    options.password = password;
    EXPECT_EQ(Get(Url("/axis-cgi/x.cgi"), options).status, 404) << password;
    options.auth = Auth::Any;
    EXPECT_EQ(Post(Url("/axis-cgi/basicdeviceinfo.cgi"), kIdentityBody, options).status, 200) << password;
    EXPECT_EQ(GetPath("/axis-cgi/x.cgi").status, 401);  // the old credentials are gone
  }
}

TEST_F(HttpCore, UnknownPathsGetTheCamerasNotFoundPage) {
  RequestOptions anonymous;
  anonymous.auth = Auth::None;
  Reply reply = Get(Url("/index2.html"), anonymous);  // outside VAPIX: no credentials needed
  EXPECT_EQ(reply.status, 404);
  EXPECT_EQ(reply.contentType, "text/html");
  EXPECT_EQ(reply.body.rfind("<HTML><HEAD><TITLE>404 Not Found</TITLE>", 0), 0u) << reply.body;
  EXPECT_NE(reply.body.find("/index2.html"), std::string::npos);
}

TEST_F(HttpCore, ScriptedAnswersMatchByPrefixLatestFirstAndOnlyAfterAuthentication) {
  camera_->Script("/axis-cgi/", {500, "text/plain", "general", {}});
  camera_->Script("/axis-cgi/record/", {200, "text/xml", "<root/>", {{"X-Extra", "1"}}});
  Reply record = GetPath("/axis-cgi/record/list.cgi?recordingid=all");
  EXPECT_EQ(record.status, 200);
  EXPECT_EQ(record.body, "<root/>");
  EXPECT_EQ(record.contentType, "text/xml");
  EXPECT_NE(record.headers.find("X-Extra: 1"), std::string::npos);
  EXPECT_EQ(GetPath("/axis-cgi/param.cgi").body, "general");

  RequestOptions wrong;
  wrong.password = "nope";
  EXPECT_EQ(Get(Url("/axis-cgi/record/list.cgi"), wrong).status, 401);

  camera_->ClearScripts();
  EXPECT_EQ(PostPath("/axis-cgi/basicdeviceinfo.cgi", kIdentityBody).status, 200);
}

TEST_F(HttpCore, StatusEmptyGarbageAndHugeFaults) {
  camera_->InjectFault("/axis-cgi/a", {camsim::Fault::Kind::Status, 503, "busy"});
  camera_->InjectFault("/axis-cgi/b", {camsim::Fault::Kind::EmptyBody});
  camera_->InjectFault("/axis-cgi/c", {camsim::Fault::Kind::Garbage});
  camera_->InjectFault("/axis-cgi/d", {camsim::Fault::Kind::Garbage, 0, "not json"});
  camsim::Fault huge{camsim::Fault::Kind::Huge};
  huge.size = 3 * 1024 * 1024 + 7;
  camera_->InjectFault("/axis-cgi/e", huge);

  Reply status = GetPath("/axis-cgi/a.cgi");
  EXPECT_EQ(status.status, 503);
  EXPECT_EQ(status.body, "busy");
  Reply empty = GetPath("/axis-cgi/b.cgi");
  EXPECT_EQ(empty.status, 200);
  EXPECT_TRUE(empty.body.empty());
  Reply garbage = GetPath("/axis-cgi/c.cgi");
  EXPECT_EQ(garbage.status, 200);
  EXPECT_FALSE(garbage.body.empty());
  EXPECT_EQ(GetPath("/axis-cgi/d.cgi").body, "not json");
  Reply big = GetPath("/axis-cgi/e.cgi");
  EXPECT_EQ(big.status, 200);
  EXPECT_EQ(big.body.size(), huge.size);
}

TEST_F(HttpCore, FaultsApplyTheGivenNumberOfTimes) {
  camsim::Fault once{camsim::Fault::Kind::Status, 500};
  once.times = 2;
  camera_->InjectFault("/axis-cgi/basicdeviceinfo.cgi", once);
  EXPECT_EQ(PostPath("/axis-cgi/basicdeviceinfo.cgi", kIdentityBody).status, 500);
  EXPECT_EQ(PostPath("/axis-cgi/basicdeviceinfo.cgi", kIdentityBody).status, 500);
  EXPECT_EQ(PostPath("/axis-cgi/basicdeviceinfo.cgi", kIdentityBody).status, 200);
}

TEST_F(HttpCore, DropClosesWithoutAnswerAndDelayStillAnswers) {
  // Every time: libcurl retries once on a fresh connection when a reused one dies silently.
  camera_->InjectFault("/axis-cgi/basicdeviceinfo.cgi", {camsim::Fault::Kind::Drop});
  Reply dropped = PostPath("/axis-cgi/basicdeviceinfo.cgi", kIdentityBody);
  EXPECT_EQ(dropped.curlCode, CURLE_GOT_NOTHING);
  EXPECT_EQ(camera_->Requests().back().status, 0);
  camera_->ClearScripts();

  camsim::Fault delay{camsim::Fault::Kind::Delay};
  delay.delay = std::chrono::milliseconds(50);
  camera_->InjectFault("/axis-cgi/basicdeviceinfo.cgi", delay);
  EXPECT_EQ(PostPath("/axis-cgi/basicdeviceinfo.cgi", kIdentityBody).status, 200);
}

TEST_F(HttpCore, StopInterruptsADelayedAnswer) {
  camsim::Fault delay{camsim::Fault::Kind::Delay};
  delay.delay = std::chrono::hours(1);
  camera_->InjectFault("/axis-cgi/", delay);
  Reply reply;
  std::thread client([&] { reply = GetPath("/axis-cgi/slow.cgi"); });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));  // let the request reach the camera
  camera_->Stop();
  client.join();  // would hang for an hour if Stop waited for the delay
  EXPECT_NE(reply.curlCode, CURLE_OK);
}

TEST_F(HttpCore, RedirectPointsAtAPathOnThisCameraOrAFullUrl) {
  camsim::Fault redirect{camsim::Fault::Kind::Redirect};
  redirect.location = "/axis-cgi/moved.cgi";
  camera_->InjectFault("/axis-cgi/old.cgi", redirect);
  Reply reply = GetPath("/axis-cgi/old.cgi");
  EXPECT_EQ(reply.status, 302);
  EXPECT_EQ(reply.location, Url("/axis-cgi/moved.cgi"));

  RequestOptions follow;
  follow.followRedirects = true;
  camera_->Script("/axis-cgi/moved.cgi", {200, "text/plain", "here", {}});
  EXPECT_EQ(Get(Url("/axis-cgi/old.cgi"), follow).body, "here");

  redirect.location = "http://192.0.2.1/elsewhere";
  camera_->InjectFault("/axis-cgi/far.cgi", redirect);
  EXPECT_EQ(GetPath("/axis-cgi/far.cgi").location, "http://192.0.2.1/elsewhere");
}

TEST_F(HttpCore, RequestLogHoldsWhatArrivedAndWhatWasAnswered) {
  RequestOptions options;
  options.auth = Auth::Any;
  options.contentType = "application/json";
  Post(Url("/axis-cgi/basicdeviceinfo.cgi?x=1&y=%20"), kIdentityBody, options);
  const auto requests = camera_->Requests();
  ASSERT_GE(requests.size(), 2u);  // the 401 leg, then the authenticated request
  EXPECT_EQ(requests.front().status, 401);
  const auto& last = requests.back();
  EXPECT_EQ(last.method, "POST");
  EXPECT_EQ(last.path, "/axis-cgi/basicdeviceinfo.cgi");
  EXPECT_EQ(last.query, "x=1&y=%20");
  EXPECT_EQ(last.headers.at("content-type"), "application/json");
  EXPECT_EQ(last.headers.count("authorization"), 1u);
  EXPECT_EQ(last.body, kIdentityBody);
  EXPECT_EQ(last.status, 200);

  camera_->ClearRequests();
  EXPECT_TRUE(camera_->Requests().empty());
}

TEST_F(HttpCore, BodiesOverTheLimitGet413AndTheCameraCarriesOn) {
  camsim::CameraConfig config;
  config.maxBodyBytes = 4096;
  Restart(config);
  Reply refused = PostPath("/axis-cgi/basicdeviceinfo.cgi", std::string(5000, 'x'));
  EXPECT_EQ(refused.status, 413);
  EXPECT_EQ(PostPath("/axis-cgi/basicdeviceinfo.cgi", kIdentityBody).status, 200);
  EXPECT_EQ(camera_->Requests().back().status, 200);
}

TEST_F(HttpCore, BindingAnAddressInUseFailsWithAMessage) {
  camsim::CameraConfig config = config_;
  config.httpPort = camera_->HttpPort();
  camsim::Camera second(config);
  std::string error;
  EXPECT_FALSE(second.Start(&error));
  EXPECT_NE(error.find(config.address), std::string::npos) << error;

  config.address = "not-an-address";
  camsim::Camera third(config);
  EXPECT_FALSE(third.Start(&error));
  EXPECT_FALSE(error.empty());
}

}  // namespace
}  // namespace camsim_test
