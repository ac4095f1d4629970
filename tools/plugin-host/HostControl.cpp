#include "HostControl.h"

#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

long CameraRequest(const CameraTarget& camera, const std::string& path, const std::string* postBody,
                   std::string* answer) {
  std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), curl_easy_cleanup);
  if (!curl) return 0;
  const std::string url = "http://" + camera.host + ":" + std::to_string(camera.httpPort) + path;
  curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_USERNAME, camera.user.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_PASSWORD, camera.password.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_HTTPAUTH, CURLAUTH_ANY);
  curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, 10L);
  if (postBody != nullptr) {
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, postBody->c_str());
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(postBody->size()));
  }
  curl_easy_setopt(
      curl.get(), CURLOPT_WRITEFUNCTION, +[](char* data, size_t size, size_t count, void* out) {
        static_cast<std::string*>(out)->append(data, size * count);
        return size * count;
      });
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, answer);
  long status = 0;
  if (curl_easy_perform(curl.get()) != CURLE_OK ||
      curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status) != CURLE_OK) {
    return 0;
  }
  return status;
}

std::string CameraPtzPosition(const CameraTarget& camera) {
  std::string body;
  if (CameraRequest(camera, "/axis-cgi/com/ptz.cgi?query=position", nullptr, &body) != 200)
    return "unknown (the camera did not answer the position query)";
  auto value = [&](const char* key) {
    const size_t at = body.find(std::string(key) + "=");
    return at == std::string::npos ? 0.0 : std::atof(body.c_str() + at + std::string(key).size() + 1);
  };
  char text[96];
  std::snprintf(text, sizeof text, "pan %.2f  tilt %.2f  zoom %.0f", value("pan"), value("tilt"), value("zoom"));
  return text;
}
