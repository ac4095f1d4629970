// HttpMessage.h - the camera's view of one HTTP exchange, free of any server library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "camera_sim/UrlDecode.h"

namespace camsim {

struct HttpRequest {
  std::string method;
  std::string path;                            // percent-decoded, without the query
  std::string query;                           // raw, without the '?'
  std::map<std::string, std::string> headers;  // names lower-cased
  std::string body;
  bool bodyTooLarge = false;  // the body was refused (over the size limit) and is not here

  // The first value of a query parameter, percent-decoded; "" when absent.
  std::string Param(const std::string& name) const;
  bool HasParam(const std::string& name) const;
  std::string Header(const std::string& lowerName) const;
};

struct HttpResponse {
  int status = 200;
  std::string contentType = "text/plain";
  std::string body;
  std::map<std::string, std::string> headers;
  size_t fillerBytes = 0;      // when non-zero: a generated body of this size instead of `body`
  bool drop = false;           // close the connection without an answer
  bool reset = false;          // close the connection with a TCP reset, without an answer
  size_t bytesPerSecond = 0;   // when non-zero: the body is sent no faster
  size_t cutAfter = SIZE_MAX;  // the body stops after this many bytes and the connection closes
};

// Query string to (decoded name -> decoded value); the first occurrence of a name wins.
std::map<std::string, std::string> ParseQuery(std::string_view query);

HttpResponse TextAnswer(int status, std::string body, std::string contentType = "text/plain");
// The camera's own 404 page.
HttpResponse NotFoundAnswer(const std::string& path);

std::string ToLower(std::string_view text);
bool StartsWith(std::string_view text, std::string_view prefix);

}  // namespace camsim
