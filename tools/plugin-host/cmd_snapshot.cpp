// plugin-host snapshot: one JPEG from the camera into a file.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "HostControl.h"

namespace {

// Larger than any JPEG a camera of the maker sends at its biggest size.
constexpr size_t kPictureBuffer = 16u << 20;

int RunSnapshot(HostContext& context) {
  const std::string output = context.Option("output", "snapshot.jpg");
  const int channel = std::atoi(context.Option("channel", "1").c_str());
  OpenedCamera camera(context);
  if (!camera.Open()) return 2;
  const auto* control = context.plugin.Query<PluginControlTable>("control");
  if (control == nullptr) return context.Fail(1, "the plug-in has no \"control\" table");
  std::vector<char> picture(kPictureBuffer);
  uint32_t size = 0;
  const int32_t result =
      control->CapturePicture(camera.Handle(), channel, 0, picture.data(), static_cast<int32_t>(picture.size()), &size);
  if (result != 0) return context.Fail(3, "CapturePicture returned %d; the plug-in's log says why", result);
  FILE* file = std::fopen(output.c_str(), "wb");
  const bool written = file != nullptr && std::fwrite(picture.data(), 1, size, file) == size;
  if (file != nullptr && std::fclose(file) != 0) return context.Fail(4, "could not write %s", output.c_str());
  if (!written) return context.Fail(4, "could not write %s", output.c_str());
  std::printf("snapshot of channel %d: %u bytes to %s\n", channel, size, output.c_str());
  return 0;
}

const HostCommandRegistration kSnapshot({"snapshot", "snapshot [--output FILE.jpg] [--channel C]",
                                         "one JPEG from the camera (default snapshot.jpg, channel 1)", RunSnapshot});

}  // namespace
