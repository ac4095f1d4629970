// JsonRpc.h - the request and answer envelope shared by the cameras' JSON APIs
// (basicdeviceinfo.cgi, ntp.cgi, streamprofile.cgi): apiVersion, context,
// method, params in; apiVersion, context, method, data or error out.
#pragma once

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <functional>
#include <string>
#include <vector>

#include "HttpMessage.h"

namespace camsim::jsonrpc {

// The general error codes of the JSON APIs.
enum ErrorCode : int {
  kRequestTypeNotSupported = 2002,  // not a POST
  kVersionNotSupported = 2003,
  kMethodNotSupported = 2004,
  kInvalidJson = 4000,
  kInvalidParameter = 4002,  // a required parameter is missing or has the wrong type or value
  kInternalError = 8000,
};

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

struct Api {
  std::vector<std::string> versions;  // supported, oldest first, e.g. {"1.0", ..., "1.3"}
  bool echoMethod = true;             // whether answers carry "method"
};

struct Call {
  rapidjson::Document document;
  std::string apiVersion;  // what the answer carries (the request's when supported)
  std::string method;
  const rapidjson::Value* context = nullptr;  // into `document`; echoed when present
  const rapidjson::Value* params = nullptr;   // an object when present
};

// Reads the envelope. False with `error` set to the API's error answer when the
// request is not a POST, not JSON, has no method or an unsupported version.
bool ParseCall(const HttpRequest& request, const Api& api, Call& call, HttpResponse& error);

HttpResponse DataAnswer(const Api& api, const Call& call, const std::function<void(Writer&)>& writeData);
HttpResponse ErrorAnswer(const Api& api, const Call& call, int code, const std::string& message);
// {"apiVersion":..., "data":{"apiVersions":[...]}}
HttpResponse SupportedVersionsAnswer(const Api& api, const Call& call);

void WriteString(Writer& writer, const std::string& text);

}  // namespace camsim::jsonrpc
