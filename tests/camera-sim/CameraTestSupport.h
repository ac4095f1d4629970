// CameraTestSupport.h - a simulated camera on its own loopback address, and a
// small libcurl client that talks to it the way the plug-in does.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "camera_sim/Camera.h"

namespace camsim_test {

struct Reply {
  long status = 0;   // 0: no HTTP answer at all
  int curlCode = 0;  // CURLcode
  std::string body;
  std::string contentType;
  std::string headers;  // the raw response header lines
};

enum class Auth { None, Digest, Any };

struct RequestOptions {
  std::string user = "root";
  std::string password = "pass";
  Auth auth = Auth::Digest;
  long timeoutMs = 30000;
};

// A GET, or a POST of *body; libcurl's answer bound (30 s by default) only guards against hangs.
Reply Perform(const std::string& url, const std::string* body = nullptr, const RequestOptions& options = {});

// The JSON value at `pointer` as text (strings, integers, "true"/"false"); "" when absent, "{}" for objects.
std::string JsonAt(const std::string& json, const char* pointer);

// Every test gets a fresh camera on an address of its own.
class CameraTest : public ::testing::Test {
 protected:
  void SetUp() override { Restart({}); }
  void TearDown() override { camera_.reset(); }
  // Replaces the running camera with one made from `config` (address and ports are filled in).
  void Restart(camsim::CameraConfig config);
  std::string Url(const std::string& pathAndQuery) const {
    return "http://" + config_.address + ":" + std::to_string(camera_->HttpPort()) + pathAndQuery;
  }
  // Shorthands with the default credentials; POSTs use CURLAUTH_ANY as the plug-in does.
  Reply GetPath(const std::string& pathAndQuery) { return Perform(Url(pathAndQuery)); }
  Reply PostPath(const std::string& path, const std::string& body) {
    return Perform(Url(path), &body, {.auth = Auth::Any});
  }

  camsim::CameraConfig config_;
  std::unique_ptr<camsim::Camera> camera_;
};

}  // namespace camsim_test
