#include "HostControl.h"

#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

std::string CameraPtzPosition(const CameraTarget& camera) {
  std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), curl_easy_cleanup);
  if (!curl) return "unknown (libcurl did not start)";
  const std::string url =
      "http://" + camera.host + ":" + std::to_string(camera.httpPort) + "/axis-cgi/com/ptz.cgi?query=position";
  std::string body;
  curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_USERNAME, camera.user.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_PASSWORD, camera.password.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_HTTPAUTH, CURLAUTH_ANY);
  curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, 10L);
  curl_easy_setopt(
      curl.get(), CURLOPT_WRITEFUNCTION, +[](char* data, size_t size, size_t count, void* out) {
        static_cast<std::string*>(out)->append(data, size * count);
        return size * count;
      });
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &body);
  long status = 0;
  if (curl_easy_perform(curl.get()) != CURLE_OK ||
      curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status) != CURLE_OK || status != 200) {
    return "unknown (the camera did not answer the position query)";
  }
  auto value = [&](const char* key) {
    const size_t at = body.find(std::string(key) + "=");
    return at == std::string::npos ? 0.0 : std::atof(body.c_str() + at + std::string(key).size() + 1);
  };
  char text[96];
  std::snprintf(text, sizeof text, "pan %.2f  tilt %.2f  zoom %.0f", value("pan"), value("tilt"), value("zoom"));
  return text;
}
