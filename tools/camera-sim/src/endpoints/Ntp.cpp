// ntp.cgi: the NTP client's settings, JSON over POST.
#include "endpoints/Endpoint.h"
#include "endpoints/JsonRpc.h"

namespace camsim {

namespace {

const jsonrpc::Api kApi{{"1.0", "1.1"}, /*echoMethod=*/true};

bool IsHostName(const std::string& name) {
  if (name.empty() || name.size() > 253) return false;
  for (char c : name) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                    c == '-' || c == ':' || c == '_';
    if (!ok) return false;
  }
  return true;
}

HttpResponse GetInfo(const jsonrpc::Call& call, EndpointContext& context) {
  const NtpState ntp = context.state.Read([](const StateData& s) { return s.ntp; });
  return jsonrpc::DataAnswer(kApi, call, [&](jsonrpc::Writer& w) {
    w.StartObject();
    w.Key("client");
    w.StartObject();
    w.Key("enabled");
    w.Bool(ntp.enabled);
    w.Key("serversSource");
    jsonrpc::WriteString(w, ntp.serversSource);
    w.Key("staticServers");
    w.StartArray();
    for (const auto& server : ntp.staticServers) jsonrpc::WriteString(w, server);
    w.EndArray();
    w.Key("advertisedServers");
    w.StartArray();
    w.EndArray();
    w.EndObject();
    w.Key("timeInfo");
    w.StartObject();
    w.Key("synced");
    w.Bool(ntp.enabled && !ntp.staticServers.empty());
    w.EndObject();
    w.EndObject();
  });
}

HttpResponse SetClient(const jsonrpc::Call& call, EndpointContext& context) {
  if (call.params == nullptr) {
    return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter, "Required parameter missing: params");
  }
  const rapidjson::Value& params = *call.params;
  std::optional<bool> enabled;
  std::optional<std::string> source;
  std::optional<std::vector<std::string>> servers;
  for (auto it = params.MemberBegin(); it != params.MemberEnd(); ++it) {
    const std::string name = it->name.GetString();
    const rapidjson::Value& value = it->value;
    if (name == "enabled") {
      if (!value.IsBool())
        return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter, "Invalid parameter: enabled");
      enabled = value.GetBool();
    } else if (name == "serversSource") {
      if (!value.IsString() ||
          (std::string(value.GetString()) != "static" && std::string(value.GetString()) != "DHCP")) {
        return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter, "Invalid parameter: serversSource");
      }
      source = value.GetString();
    } else if (name == "staticServers") {
      if (!value.IsArray()) {
        return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter, "Invalid parameter: staticServers");
      }
      servers.emplace();
      for (const auto& server : value.GetArray()) {
        if (server.IsNull()) continue;  // an unused slot
        if (!server.IsString() || !IsHostName(server.GetString())) {
          return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter,
                                      "Invalid parameter: staticServers holds a value that is not a host name");
        }
        servers->push_back(server.GetString());
      }
    } else {
      return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter, "Unknown parameter: " + name);
    }
  }
  context.state.Modify([&](StateData& s) {
    if (enabled) s.ntp.enabled = *enabled;
    if (source) s.ntp.serversSource = *source;
    if (servers) s.ntp.staticServers = *servers;
  });
  return jsonrpc::DataAnswer(kApi, call, [](jsonrpc::Writer& w) {
    w.StartObject();
    w.EndObject();
  });
}

}  // namespace

HttpResponse HandleNtp(const HttpRequest& request, EndpointContext& context) {
  jsonrpc::Call call;
  HttpResponse error;
  if (!jsonrpc::ParseCall(request, kApi, call, error)) return error;
  if (call.method == "getNTPInfo") return GetInfo(call, context);
  if (call.method == "setNTPClientConfiguration") return SetClient(call, context);
  if (call.method == "getSupportedVersions") return jsonrpc::SupportedVersionsAnswer(kApi, call);
  return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kMethodNotSupported, "Method not supported: " + call.method);
}

}  // namespace camsim
