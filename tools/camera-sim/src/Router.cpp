#include "Router.h"

#include "HttpMessage.h"

namespace camsim {

namespace {

struct Route {
  std::string_view path;
  EndpointHandler handler;
};

constexpr Route kRoutes[] = {
    {"/axis-cgi/basicdeviceinfo.cgi", &HandleBasicDeviceInfo},
    {"/axis-cgi/record/list.cgi", &HandleRecordList},
    {"/axis-cgi/disks/list.cgi", &HandleDisksList},
    {"/vapix/services", &HandleVapixServices},
    {"/axis-cgi/streamprofile.cgi", &HandleStreamProfile},
    {"/axis-cgi/com/ptz.cgi", &HandlePtz},
    {"/axis-cgi/com/ptzconfig.cgi", &HandlePtzConfig},
    {"/axis-cgi/admin/date.cgi", &HandleDate},
    {"/axis-cgi/ntp.cgi", &HandleNtp},
    {"/axis-cgi/jpg/image.cgi", &HandleJpegImage},
    {"/axis-cgi/param.cgi", &HandleParam},
};

}  // namespace

EndpointHandler FindEndpoint(std::string_view path) {
  for (const Route& route : kRoutes) {
    if (route.path == path) return route.handler;
  }
  return nullptr;
}

bool NeedsAuthentication(std::string_view path) {
  return StartsWith(path, "/axis-cgi/") || StartsWith(path, "/vapix/") || IsControlPath(path);
}

bool IsControlPath(std::string_view path) { return StartsWith(path, "/camera-sim/"); }

}  // namespace camsim
