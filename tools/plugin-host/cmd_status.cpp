// plugin-host status: the camera's work-status document as a short summary
// (--xml prints it as the plug-in wrote it).
#include <cstdio>
#include <string>
#include <vector>

#include "HostControl.h"

namespace {

// The text of the first <tag ...>text</tag> at or after `from`; `from` moves past it.
std::string Element(const std::string& document, const std::string& tag, size_t& from) {
  size_t open = document.find("<" + tag, from);
  // Not a longer name that begins the same ("RecordStatus" in "RecordStatusInfo").
  while (open != std::string::npos && open + tag.size() + 1 < document.size() &&
         document[open + tag.size() + 1] != '>' && document[open + tag.size() + 1] != ' ') {
    open = document.find("<" + tag, open + 1);
  }
  const size_t start = open == std::string::npos ? open : document.find('>', open);
  const size_t end = start == std::string::npos ? start : document.find("</" + tag + ">", start);
  if (end == std::string::npos) return "?";
  from = end;
  return document.substr(start + 1, end - start - 1);
}

std::string Element(const std::string& document, const std::string& tag) {
  size_t from = 0;
  return Element(document, tag, from);
}

int RunStatus(HostContext& context) {
  OpenedCamera camera(context);
  if (!camera.Open()) return 2;
  const auto* status = context.plugin.Query<PluginStatusTable>("status");
  if (status == nullptr) return context.Fail(1, "the plug-in has no \"status\" table");
  std::vector<char> buffer(64 * 1024);
  const int32_t result = status->GetWorkStatus(camera.Handle(), buffer.data(), static_cast<int32_t>(buffer.size()));
  if (result != 0) return context.Fail(3, "GetWorkStatus returned %d; the plug-in's log says why", result);
  const std::string document = buffer.data();
  if (context.options.count("xml") != 0) {
    std::printf("%s\n", document.c_str());
    return 0;
  }
  const bool online = Element(document, "Online") == "1";
  std::printf("  serial:    %s\n  firmware:  %s\n  online:    %s\n  recording: %s\n  disks:     %s\n",
              Element(document, "SerialNum").c_str(), Element(document, "MainVersion").c_str(),
              online ? "yes" : "no (the camera did not answer everything; the plug-in's log says why)",
              Element(document, "RecordStatus") == "1" ? "yes" : "no", Element(document, "HDNum").c_str());
  size_t from = document.find("<HDStatusInfo");
  for (size_t disk = 1; from != std::string::npos && document.find("<HardDisk", from) != std::string::npos; ++disk) {
    const std::string capacity = Element(document, "Capacity", from);
    const std::string free = Element(document, "FreeCap", from);
    const std::string state = Element(document, "Status", from);
    std::printf("    disk %zu: %s KB, %s KB free, %s\n", disk, capacity.c_str(), free.c_str(),
                state == "1" ? "ok" : "not usable");
  }
  return online ? 0 : context.Fail(3, "the camera is not fully reachable: the work status says offline");
}

const HostCommandRegistration kStatus({"status", "status [--xml]",
                                       "the camera's work status: identity, online, recording, disks", RunStatus});

}  // namespace
