#include "endpoints/JsonRpc.h"

#include <cstdlib>

namespace camsim::jsonrpc {

namespace {

std::string Major(const std::string& version) { return version.substr(0, version.find('.')); }

bool IsVersionText(const std::string& version) {
  const size_t dot = version.find('.');
  if (dot == std::string::npos || dot == 0 || dot + 1 == version.size()) return false;
  for (size_t i = 0; i < version.size(); ++i) {
    if (i != dot && (version[i] < '0' || version[i] > '9')) return false;
  }
  return true;
}

// A requested "1.x" is answered in the newest supported 1.y with y <= x, or the
// oldest one of that major version when x is older still.
std::string Negotiate(const Api& api, const std::string& requested) {
  if (!IsVersionText(requested)) return std::string();
  std::string best;
  for (const std::string& version : api.versions) {
    if (Major(version) != Major(requested)) continue;
    const long minor = std::strtol(version.c_str() + version.find('.') + 1, nullptr, 10);
    const long wanted = std::strtol(requested.c_str() + requested.find('.') + 1, nullptr, 10);
    if (best.empty() || minor <= wanted) best = version;
  }
  return best;
}

HttpResponse Finish(rapidjson::StringBuffer& buffer) {
  return TextAnswer(200, std::string(buffer.GetString(), buffer.GetSize()), "application/json");
}

void BeginAnswer(const Api& api, const Call& call, Writer& w) {
  w.StartObject();
  w.Key("apiVersion");
  WriteString(w, call.apiVersion.empty() ? api.versions.back() : call.apiVersion);
  if (call.context != nullptr) {
    w.Key("context");
    call.context->Accept(w);
  }
  if (api.echoMethod && !call.method.empty()) {
    w.Key("method");
    WriteString(w, call.method);
  }
}

}  // namespace

void WriteString(Writer& writer, const std::string& text) {
  writer.String(text.c_str(), static_cast<rapidjson::SizeType>(text.size()));
}

bool ParseCall(const HttpRequest& request, const Api& api, Call& call, HttpResponse& error) {
  if (request.method != "POST") {
    error =
        ErrorAnswer(api, call, kRequestTypeNotSupported, "HTTP request type not supported. Only POST is supported.");
    return false;
  }
  call.document.Parse(request.body.c_str(), request.body.size());
  if (call.document.HasParseError() || !call.document.IsObject()) {
    error = ErrorAnswer(api, call, kInvalidJson, "Invalid JSON");
    return false;
  }
  auto context = call.document.FindMember("context");
  if (context != call.document.MemberEnd()) call.context = &context->value;
  auto method = call.document.FindMember("method");
  if (method != call.document.MemberEnd() && method->value.IsString()) call.method = method->value.GetString();
  auto params = call.document.FindMember("params");
  if (params != call.document.MemberEnd()) {
    if (!params->value.IsObject()) {
      error = ErrorAnswer(api, call, kInvalidParameter, "Invalid parameter: params must be an object");
      return false;
    }
    call.params = &params->value;
  }
  auto version = call.document.FindMember("apiVersion");
  if (version == call.document.MemberEnd() || !version->value.IsString()) {
    error = ErrorAnswer(api, call, kInvalidParameter, "Required parameter missing or invalid: apiVersion");
    return false;
  }
  call.apiVersion = Negotiate(api, version->value.GetString());
  if (call.apiVersion.empty()) {
    error = ErrorAnswer(api, call, kVersionNotSupported, "The requested API version is not supported");
    return false;
  }
  if (call.method.empty()) {
    error = ErrorAnswer(api, call, kInvalidParameter, "Required parameter missing or invalid: method");
    return false;
  }
  return true;
}

HttpResponse DataAnswer(const Api& api, const Call& call, const std::function<void(Writer&)>& writeData) {
  rapidjson::StringBuffer buffer;
  Writer w(buffer);
  BeginAnswer(api, call, w);
  w.Key("data");
  writeData(w);
  w.EndObject();
  return Finish(buffer);
}

HttpResponse ErrorAnswer(const Api& api, const Call& call, int code, const std::string& message) {
  rapidjson::StringBuffer buffer;
  Writer w(buffer);
  BeginAnswer(api, call, w);
  w.Key("error");
  w.StartObject();
  w.Key("code");
  w.Int(code);
  w.Key("message");
  WriteString(w, message);
  w.EndObject();
  w.EndObject();
  return Finish(buffer);
}

HttpResponse SupportedVersionsAnswer(const Api& api, const Call& call) {
  return DataAnswer(api, call, [&](Writer& w) {
    w.StartObject();
    w.Key("apiVersions");
    w.StartArray();
    for (const auto& version : api.versions) WriteString(w, version);
    w.EndArray();
    w.EndObject();
  });
}

}  // namespace camsim::jsonrpc
