// Endpoint.h - what every endpoint of the simulated camera gets: the request,
// the camera's identity and its state. Endpoints are pure: request in, answer out.
#pragma once

#include "CameraState.h"
#include "HttpMessage.h"
#include "camera_sim/Camera.h"

namespace camsim {

struct EndpointContext {
  const CameraConfig& config;  // identity (brand, model, serial, ...) and whether PTZ is fitted
  CameraState& state;
};

using EndpointHandler = HttpResponse (*)(const HttpRequest&, EndpointContext&);

HttpResponse HandleBasicDeviceInfo(const HttpRequest& request, EndpointContext& context);
HttpResponse HandleRecordList(const HttpRequest& request, EndpointContext& context);
HttpResponse HandleDisksList(const HttpRequest& request, EndpointContext& context);
HttpResponse HandleVapixServices(const HttpRequest& request, EndpointContext& context);
HttpResponse HandleStreamProfile(const HttpRequest& request, EndpointContext& context);
HttpResponse HandlePtz(const HttpRequest& request, EndpointContext& context);
HttpResponse HandlePtzConfig(const HttpRequest& request, EndpointContext& context);
HttpResponse HandleDate(const HttpRequest& request, EndpointContext& context);
HttpResponse HandleNtp(const HttpRequest& request, EndpointContext& context);
HttpResponse HandleJpegImage(const HttpRequest& request, EndpointContext& context);
HttpResponse HandleParam(const HttpRequest& request, EndpointContext& context);

}  // namespace camsim
