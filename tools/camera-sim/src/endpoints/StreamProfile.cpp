// streamprofile.cgi: named sets of stream parameters, JSON over POST.
#include "endpoints/Endpoint.h"
#include "endpoints/JsonRpc.h"

namespace camsim {

namespace {

constexpr int kMaxProfiles = 26;
const jsonrpc::Api kApi{{"1.0"}, /*echoMethod=*/true};

// The names listed in params.streamProfileName; false when the parameter has the wrong shape.
bool ReadNames(const jsonrpc::Call& call, std::vector<std::string>& names, bool required) {
  const rapidjson::Value* list = nullptr;
  if (call.params != nullptr) {
    auto it = call.params->FindMember("streamProfileName");
    if (it != call.params->MemberEnd()) list = &it->value;
  }
  if (list == nullptr) return !required;
  if (!list->IsArray()) return false;
  for (const auto& entry : list->GetArray()) {
    if (entry.IsString()) {
      names.push_back(entry.GetString());
    } else if (entry.IsObject() && entry.HasMember("name") && entry["name"].IsString()) {
      names.push_back(entry["name"].GetString());
    } else {
      return false;
    }
  }
  return true;
}

HttpResponse List(const jsonrpc::Call& call, EndpointContext& context) {
  std::vector<std::string> names;
  if (!ReadNames(call, names, false)) {
    return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter, "Invalid parameter: streamProfileName");
  }
  auto profiles = context.state.Read([](const StateData& s) { return s.streamProfiles; });
  std::vector<StreamProfile> selected;
  for (const auto& profile : profiles) {
    bool wanted = names.empty();
    for (const auto& name : names) wanted = wanted || name == profile.name;
    if (wanted) selected.push_back(profile);
  }
  return jsonrpc::DataAnswer(kApi, call, [&](jsonrpc::Writer& w) {
    w.StartObject();
    if (!selected.empty()) {  // a camera without profiles leaves the key out
      w.Key("streamProfile");
      w.StartArray();
      for (const auto& profile : selected) {
        w.StartObject();
        w.Key("name");
        jsonrpc::WriteString(w, profile.name);
        w.Key("description");
        jsonrpc::WriteString(w, profile.description);
        w.Key("parameters");
        jsonrpc::WriteString(w, profile.parameters);
        w.EndObject();
      }
      w.EndArray();
    }
    w.Key("maxProfiles");
    w.Int(kMaxProfiles);
    w.EndObject();
  });
}

HttpResponse Create(const jsonrpc::Call& call, EndpointContext& context) {
  const rapidjson::Value* list = nullptr;
  if (call.params != nullptr) {
    auto it = call.params->FindMember("streamProfile");
    if (it != call.params->MemberEnd() && it->value.IsArray()) list = &it->value;
  }
  if (list == nullptr || list->Empty()) {
    return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter, "Invalid parameter: streamProfile");
  }
  std::vector<StreamProfile> added;
  for (const auto& entry : list->GetArray()) {
    auto text = [&](const char* key) -> const char* {
      if (!entry.IsObject()) return nullptr;
      auto it = entry.FindMember(key);
      return it != entry.MemberEnd() && it->value.IsString() ? it->value.GetString() : nullptr;
    };
    if (text("name") == nullptr || *text("name") == '\0' || text("parameters") == nullptr) {
      return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter,
                                  "Invalid parameter: a stream profile needs a name and parameters");
    }
    added.push_back({text("name"), text("description") != nullptr ? text("description") : "", text("parameters")});
  }
  const std::string problem = context.state.Modify([&](StateData& s) -> std::string {
    if (s.streamProfiles.size() + added.size() > kMaxProfiles) return "The maximum number of profiles is reached";
    for (const auto& profile : added) {
      for (const auto& existing : s.streamProfiles) {
        if (existing.name == profile.name) return "A stream profile named " + profile.name + " exists";
      }
    }
    s.streamProfiles.insert(s.streamProfiles.end(), added.begin(), added.end());
    return std::string();
  });
  if (!problem.empty()) return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter, problem);
  return jsonrpc::DataAnswer(kApi, call, [](jsonrpc::Writer& w) {
    w.StartObject();
    w.EndObject();
  });
}

HttpResponse Remove(const jsonrpc::Call& call, EndpointContext& context) {
  std::vector<std::string> names;
  if (!ReadNames(call, names, true) || names.empty()) {
    return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter, "Invalid parameter: streamProfileName");
  }
  const std::string missing = context.state.Modify([&](StateData& s) -> std::string {
    for (const auto& name : names) {
      bool found = false;
      for (const auto& profile : s.streamProfiles) found = found || profile.name == name;
      if (!found) return name;
    }
    for (const auto& name : names) {
      for (auto it = s.streamProfiles.begin(); it != s.streamProfiles.end(); ++it) {
        if (it->name == name) {
          s.streamProfiles.erase(it);
          break;
        }
      }
    }
    return std::string();
  });
  if (!missing.empty()) {
    return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter, "No stream profile named " + missing);
  }
  return jsonrpc::DataAnswer(kApi, call, [](jsonrpc::Writer& w) {
    w.StartObject();
    w.EndObject();
  });
}

}  // namespace

HttpResponse HandleStreamProfile(const HttpRequest& request, EndpointContext& context) {
  jsonrpc::Call call;
  HttpResponse error;
  if (!jsonrpc::ParseCall(request, kApi, call, error)) return error;
  if (call.method == "list") return List(call, context);
  if (call.method == "create") return Create(call, context);
  if (call.method == "remove") return Remove(call, context);
  if (call.method == "getSupportedVersions") return jsonrpc::SupportedVersionsAnswer(kApi, call);
  return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kMethodNotSupported, "Method not supported: " + call.method);
}

}  // namespace camsim
