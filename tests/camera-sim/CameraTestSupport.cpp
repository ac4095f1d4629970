#include "CameraTestSupport.h"

#include <curl/curl.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>

#include "LoopbackAddress.h"

namespace camsim_test {
namespace {

size_t Append(char* data, size_t size, size_t count, void* user) {
  static_cast<std::string*>(user)->append(data, size * count);
  return size * count;
}

}  // namespace

Reply Perform(const std::string& url, const std::string* body, const RequestOptions& options) {
  Reply reply;
  CURL* curl = curl_easy_init();
  if (curl == nullptr) return reply;
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  if (body != nullptr) {
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body->data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size()));
  }
  if (options.auth != Auth::None) {
    curl_easy_setopt(curl, CURLOPT_USERNAME, options.user.c_str());
    curl_easy_setopt(curl, CURLOPT_PASSWORD, options.password.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPAUTH, options.auth == Auth::Digest ? CURLAUTH_DIGEST : CURLAUTH_ANY);
  }
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Append);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &Append);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply.headers);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, options.timeoutMs);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  reply.curlCode = curl_easy_perform(curl);
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
  const char* type = nullptr;
  if (curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &type) == CURLE_OK && type != nullptr) reply.contentType = type;
  curl_easy_cleanup(curl);
  return reply;
}

std::string JsonAt(const std::string& json, const char* pointer) {
  rapidjson::Document doc;
  doc.Parse(json.c_str());
  const rapidjson::Value* v = doc.HasParseError() ? nullptr : rapidjson::Pointer(pointer).Get(doc);
  if (v == nullptr) return doc.HasParseError() ? "<not json>" : "";
  if (v->IsBool()) return v->GetBool() ? "true" : "false";
  return v->IsString() ? v->GetString() : v->IsInt() ? std::to_string(v->GetInt()) : "{}";
}

void CameraTest::Restart(camsim::CameraConfig config) {
  camera_.reset();
  config.address = netcam_test::UniqueLoopbackAddress();
  config.httpPort = 0;
  config.rtspPort = 0;
  config_ = config;
  camera_ = std::make_unique<camsim::Camera>(config);
  std::string error;
  ASSERT_TRUE(camera_->Start(&error)) << error;
}

}  // namespace camsim_test
