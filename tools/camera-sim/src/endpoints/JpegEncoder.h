// JpegEncoder.h - a real JPEG of any size (a test pattern), with libjpeg.
#pragma once

#include <string>

namespace camsim {

// `quality` 1..100. Empty on failure.
std::string EncodeTestPatternJpeg(int width, int height, int quality, unsigned seed);

}  // namespace camsim
