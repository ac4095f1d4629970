// disks/list.cgi: the camera's storage (SD card and network share), XML.
#include "endpoints/Endpoint.h"
#include "endpoints/Xml.h"

namespace camsim {

namespace {

constexpr const char* kSchema = "http://www.axis.com/vapix/http_cgi/disks/list1.xsd";

struct Disk {
  const char* id;
  const char* name;
  const char* totalKb;
  const char* freeKb;
  const char* status;
  const char* filesystem;
  const char* group;
};

constexpr Disk kDisks[] = {
    {"SD_DISK", "", "30535680", "18321408", "OK", "ext4", "S0"},
    {"NetworkShare", "", "0", "0", "disconnected", "cifs", "S1"},
};

}  // namespace

HttpResponse HandleDisksList(const HttpRequest& request, EndpointContext&) {
  if (!request.HasParam("diskid")) return XmlErrorAnswer(kSchema, 1, "Missing parameter: diskid");
  const std::string wanted = request.Param("diskid");
  pugi::xml_document doc;
  pugi::xml_node disks = AddSchemaRoot(doc, kSchema).append_child("disks");
  unsigned count = 0;
  for (const Disk& disk : kDisks) {
    if (wanted != "all" && wanted != disk.id) continue;
    ++count;
    pugi::xml_node node = disks.append_child("disk");
    node.append_attribute("diskid") = disk.id;
    node.append_attribute("name") = disk.name;
    node.append_attribute("totalsize") = disk.totalKb;
    node.append_attribute("freesize") = disk.freeKb;
    node.append_attribute("cleanuplevel") = "99";
    node.append_attribute("cleanupmaxage") = "7";
    node.append_attribute("cleanuppolicy") = "fifo";
    node.append_attribute("locked") = "no";
    node.append_attribute("full") = "no";
    node.append_attribute("readonly") = "no";
    node.append_attribute("status") = disk.status;
    node.append_attribute("filesystem") = disk.filesystem;
    node.append_attribute("group") = disk.group;
    node.append_attribute("requiredfilesystem") = "none";
    node.append_attribute("encryptionenabled") = "false";
    node.append_attribute("diskencrypted") = "false";
  }
  if (count == 0) return XmlErrorAnswer(kSchema, 2, "Invalid value for parameter diskid: " + wanted);
  disks.prepend_attribute("numberofdisks") = count;
  return XmlAnswer(doc);
}

}  // namespace camsim
