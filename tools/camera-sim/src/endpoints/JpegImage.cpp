// jpg/image.cgi: a snapshot, a real JPEG of the requested size.
#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "endpoints/Endpoint.h"
#include "endpoints/JpegEncoder.h"
#include "endpoints/Resolutions.h"

namespace camsim {

namespace {

HttpResponse ImageError(const std::string& message) { return TextAnswer(400, "Error: " + message + "\r\n"); }

}  // namespace

HttpResponse HandleJpegImage(const HttpRequest& request, EndpointContext&) {
  const auto params = ParseQuery(request.query);
  auto get = [&](const char* name, const char* fallback) {
    return params.count(name) != 0 ? params.at(name) : std::string(fallback);
  };
  const std::string resolution = get("resolution", "1920x1080");
  int width = 0, height = 0;
  char extra = 0;
  if (std::sscanf(resolution.c_str(), "%dx%d%c", &width, &height, &extra) != 2) {
    return ImageError("invalid resolution " + resolution);
  }
  bool supported = false;
  for (const Resolution& r : kResolutions) supported = supported || (r.width == width && r.height == height);
  if (!supported) return ImageError("resolution " + resolution + " is not supported");

  const std::string compressionText = get("compression", "30");
  char* end = nullptr;
  const long compression = std::strtol(compressionText.c_str(), &end, 10);
  if (compressionText.empty() || *end != '\0' || compression < 0 || compression > 100) {
    return ImageError("compression must be 0..100");
  }
  const std::string camera = get("camera", "1");
  if (camera != "1" && camera != "0") return ImageError("no such camera " + camera);

  static std::atomic<unsigned> pictures{0};
  std::string jpeg =
      EncodeTestPatternJpeg(width, height, static_cast<int>(100 - compression < 1 ? 1 : 100 - compression), pictures++);
  if (jpeg.empty()) return TextAnswer(500, "Error: the picture could not be encoded\r\n");
  return TextAnswer(200, std::move(jpeg), "image/jpeg");
}

}  // namespace camsim
