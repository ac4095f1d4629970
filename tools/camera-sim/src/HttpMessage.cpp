#include "HttpMessage.h"

#include <cctype>

namespace camsim {

std::map<std::string, std::string> ParseQuery(std::string_view query) {
  std::map<std::string, std::string> params;
  size_t start = 0;
  while (start <= query.size()) {
    size_t end = query.find('&', start);
    if (end == std::string_view::npos) end = query.size();
    std::string_view piece = query.substr(start, end - start);
    if (!piece.empty()) {
      size_t eq = piece.find('=');
      std::string name = UrlDecode(piece.substr(0, eq));
      std::string value = eq == std::string_view::npos ? std::string() : UrlDecode(piece.substr(eq + 1));
      params.emplace(std::move(name), std::move(value));
    }
    start = end + 1;
  }
  return params;
}

std::string HttpRequest::Param(const std::string& name) const {
  auto params = ParseQuery(query);
  auto it = params.find(name);
  return it == params.end() ? std::string() : it->second;
}

bool HttpRequest::HasParam(const std::string& name) const { return ParseQuery(query).count(name) != 0; }

std::string HttpRequest::Header(const std::string& lowerName) const {
  auto it = headers.find(lowerName);
  return it == headers.end() ? std::string() : it->second;
}

HttpResponse TextAnswer(int status, std::string body, std::string contentType) {
  HttpResponse response;
  response.status = status;
  response.body = std::move(body);
  response.contentType = std::move(contentType);
  return response;
}

HttpResponse NotFoundAnswer(const std::string& path) {
  std::string escaped;
  for (char c : path) {
    if (c == '<')
      escaped += "&lt;";
    else if (c == '>')
      escaped += "&gt;";
    else if (c == '&')
      escaped += "&amp;";
    else
      escaped.push_back(c);
  }
  return TextAnswer(
      404,
      "<HTML><HEAD><TITLE>404 Not Found</TITLE></HEAD>\n<BODY><H1>404 Not Found</H1>\nThe requested URL " + escaped +
          " was not found on this server.\n</BODY></HTML>\n",
      "text/html");
}

std::string ToLower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

bool StartsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

}  // namespace camsim
