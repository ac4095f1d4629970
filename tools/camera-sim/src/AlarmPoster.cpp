#include "AlarmPoster.h"

#include <curl/curl.h>

#include <memory>

namespace camsim {

namespace {

struct CurlDeleter {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct HeaderListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

size_t Discard(char*, size_t size, size_t count, void*) { return size * count; }

}  // namespace

std::string RedactUrl(const std::string& url) {
  const size_t scheme = url.find("://");
  const size_t start = scheme == std::string::npos ? 0 : scheme + 3;
  const size_t end = url.find_first_of("/?#", start);
  const size_t at = url.rfind('@', end == std::string::npos ? url.size() : end);
  if (at == std::string::npos || at < start) return url;
  return url.substr(0, start) + url.substr(at + 1);
}

bool PostAlarm(const std::string& url, const std::string& fromAddress, const std::string& body, std::string* error) {
  std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
  if (!curl) {
    if (error != nullptr) *error = "cannot create an HTTP client";
    return false;
  }
  std::unique_ptr<curl_slist, HeaderListDeleter> headers(curl_slist_append(nullptr, "Content-Type: text/plain"));
  const std::string interface = "host!" + fromAddress;
  CURL* h = curl.get();
  curl_easy_setopt(h, CURLOPT_URL, url.c_str());
  curl_easy_setopt(h, CURLOPT_INTERFACE, interface.c_str());
  curl_easy_setopt(h, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(h, CURLOPT_POSTFIELDS, body.c_str());
  curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(h, CURLOPT_USERAGENT, "Axis camera");
  curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT, 5L);
  curl_easy_setopt(h, CURLOPT_TIMEOUT, 10L);
  curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, &Discard);
  const CURLcode result = curl_easy_perform(h);
  if (result != CURLE_OK) {
    if (error != nullptr) *error = curl_easy_strerror(result);
    return false;
  }
  long status = 0;
  curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
  if (status < 200 || status > 299) {
    if (error != nullptr) *error = "answered with HTTP " + std::to_string(status);
    return false;
  }
  return true;
}

}  // namespace camsim
