// param.cgi: the camera's parameter tree, read-only (action=list).
#include <utility>
#include <vector>

#include "endpoints/Endpoint.h"
#include "endpoints/Resolutions.h"

namespace camsim {

namespace {

std::vector<std::pair<std::string, std::string>> Parameters(const CameraConfig& config) {
  std::string resolutions;
  for (const Resolution& r : kResolutions) {
    if (!resolutions.empty()) resolutions += ",";
    resolutions += std::to_string(r.width) + "x" + std::to_string(r.height);
  }
  return {
      {"Brand.Brand", config.brand},
      {"Brand.ProdFullName", config.model},
      {"Brand.ProdNbr", config.productNumber},
      {"Brand.ProdShortName", config.model},
      {"Brand.ProdType", "Network Camera"},
      {"Properties.Firmware.Version", config.firmware},
      {"Properties.Image.Format", "jpeg,mjpeg,h264,h265"},
      {"Properties.Image.NbrOfViews", "1"},
      {"Properties.Image.Resolution", resolutions},
      {"Properties.PTZ.PTZ", config.hasPtz ? "yes" : "no"},
      {"Properties.System.SerialNumber", config.serial},
  };
}

}  // namespace

HttpResponse HandleParam(const HttpRequest& request, EndpointContext& context) {
  const auto query = ParseQuery(request.query);
  auto get = [&](const char* name) { return query.count(name) != 0 ? query.at(name) : std::string(); };
  const std::string action = get("action");
  if (action != "list") return TextAnswer(200, "# Error: Unsupported action '" + action + "'\r\n");
  const auto all = Parameters(context.config);
  std::string groups = get("group");
  std::string answer;
  size_t start = 0;
  while (start <= groups.size()) {
    size_t end = groups.find(',', start);
    if (end == std::string::npos) end = groups.size();
    std::string group = groups.substr(start, end - start);
    start = end + 1;
    if (group.rfind("root.", 0) == 0) group = group.substr(5);
    if (group == "root") group.clear();
    bool found = false;
    for (const auto& [name, value] : all) {
      if (group.empty() || name == group || name.rfind(group + ".", 0) == 0) {
        answer += "root." + name + "=" + value + "\n";
        found = true;
      }
    }
    if (!found) return TextAnswer(200, "# Error: Error -1 getting param in group '" + group + "'\n");
  }
  return TextAnswer(200, answer);
}

}  // namespace camsim
