// basicdeviceinfo.cgi: the product's identity, JSON over POST.
#include <utility>
#include <vector>

#include "endpoints/Endpoint.h"
#include "endpoints/JsonRpc.h"

namespace camsim {

namespace {

std::vector<std::pair<std::string, std::string>> Properties(const CameraConfig& config) {
  std::vector<std::pair<std::string, std::string>> list = {
      {"Architecture", "aarch64"},
      {"Brand", config.brand},
      {"BuildDate", "Jun 18 2024 09:41"},
      {"HardwareID", "7A4.1"},
      {"ProdFullName", config.model},
      {"ProdNbr", config.productNumber},
      {"ProdShortName", config.model},
      {"ProdType", "Network Camera"},
      {"ProdVariant", ""},
      {"SerialNumber", config.serial},
      {"Soc", "Axis Artpec-7"},
      {"SocSerialNumber", "00000000-00000000-" + config.serial.substr(0, 8)},
      {"Version", config.firmware},
      {"WebURL", "http://www.axis.com"},
  };
  // A camera made without a brand has no Brand property at all.
  if (config.brand.empty()) list.erase(list.begin() + 1);
  return list;
}

}  // namespace

HttpResponse HandleBasicDeviceInfo(const HttpRequest& request, EndpointContext& context) {
  static const jsonrpc::Api kApi{{"1.0", "1.1", "1.2", "1.3"}, /*echoMethod=*/false};
  jsonrpc::Call call;
  HttpResponse error;
  if (!jsonrpc::ParseCall(request, kApi, call, error)) return error;

  const auto properties = Properties(context.config);
  auto writeList = [](jsonrpc::Writer& w, const std::vector<std::pair<std::string, std::string>>& list) {
    w.StartObject();
    w.Key("propertyList");
    w.StartObject();
    for (const auto& [name, value] : list) {
      jsonrpc::WriteString(w, name);
      jsonrpc::WriteString(w, value);
    }
    w.EndObject();
    w.EndObject();
  };

  if (call.method == "getAllProperties" || call.method == "getAllUnrestrictedProperties") {
    return jsonrpc::DataAnswer(kApi, call, [&](jsonrpc::Writer& w) { writeList(w, properties); });
  }
  if (call.method == "getProperties") {
    const rapidjson::Value* names = nullptr;
    if (call.params != nullptr) {
      auto it = call.params->FindMember("propertyList");
      if (it != call.params->MemberEnd() && it->value.IsArray()) names = &it->value;
    }
    if (names == nullptr) {
      return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter,
                                  "Required parameter missing or invalid: params.propertyList");
    }
    std::vector<std::pair<std::string, std::string>> selected;
    for (const auto& name : names->GetArray()) {
      if (!name.IsString()) {
        return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kInvalidParameter,
                                    "Invalid parameter: propertyList holds a value that is not a string");
      }
      for (const auto& property : properties) {
        if (property.first == name.GetString()) selected.push_back(property);
      }
    }
    return jsonrpc::DataAnswer(kApi, call, [&](jsonrpc::Writer& w) { writeList(w, selected); });
  }
  if (call.method == "getSupportedVersions") return jsonrpc::SupportedVersionsAnswer(kApi, call);
  return jsonrpc::ErrorAnswer(kApi, call, jsonrpc::kMethodNotSupported, "Method not supported: " + call.method);
}

}  // namespace camsim
