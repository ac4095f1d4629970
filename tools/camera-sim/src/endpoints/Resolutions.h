// Resolutions.h - the picture sizes the camera offers (param.cgi lists them, image.cgi accepts them).
#pragma once

namespace camsim {

struct Resolution {
  int width;
  int height;
};

constexpr Resolution kResolutions[] = {{1920, 1080}, {1280, 720}, {1024, 576}, {800, 450},
                                       {640, 360},   {480, 270},  {320, 180}};

}  // namespace camsim
