#include "endpoints/JpegEncoder.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <vector>

// jpeglib.h needs FILE and size_t first.
#include <jpeglib.h>

namespace camsim {

namespace {

struct ErrorTrap {
  jpeg_error_mgr manager;
  std::jmp_buf jump;
};

// libjpeg's default reaction to an error is exit(); jump back instead.
void OnJpegError(j_common_ptr info) { std::longjmp(reinterpret_cast<ErrorTrap*>(info->err)->jump, 1); }
void Silence(j_common_ptr) {}

// Plain C state only between setjmp and longjmp: nothing here has a destructor.
bool Encode(const unsigned char* pixels, int width, int height, int quality, unsigned char** out, unsigned long* size) {
  jpeg_compress_struct info;
  ErrorTrap trap;
  info.err = jpeg_std_error(&trap.manager);
  trap.manager.error_exit = &OnJpegError;
  trap.manager.output_message = &Silence;
  if (setjmp(trap.jump) != 0) {
    jpeg_destroy_compress(&info);
    return false;
  }
  jpeg_create_compress(&info);
  jpeg_mem_dest(&info, out, size);
  info.image_width = static_cast<JDIMENSION>(width);
  info.image_height = static_cast<JDIMENSION>(height);
  info.input_components = 3;
  info.in_color_space = JCS_RGB;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, quality, TRUE);
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(pixels + static_cast<size_t>(info.next_scanline) * width * 3);
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  return true;
}

}  // namespace

std::string EncodeTestPatternJpeg(int width, int height, int quality, unsigned seed) {
  if (width <= 0 || height <= 0 || width > 8192 || height > 8192) return std::string();
  // Colour bars over a gradient, shifted by `seed` so that successive pictures differ.
  std::vector<unsigned char> pixels(static_cast<size_t>(width) * height * 3);
  static const unsigned char kBars[8][3] = {{235, 235, 235}, {235, 235, 16}, {16, 235, 235}, {16, 235, 16},
                                            {235, 16, 235},  {235, 16, 16},  {16, 16, 235},  {16, 16, 16}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      unsigned char* p = &pixels[(static_cast<size_t>(y) * width + x) * 3];
      if (y < height * 2 / 3) {
        const unsigned char* bar = kBars[(x * 8 / width + seed) % 8];
        p[0] = bar[0], p[1] = bar[1], p[2] = bar[2];
      } else {
        const auto level = static_cast<unsigned char>(x * 255 / (width > 1 ? width - 1 : 1));
        p[0] = p[1] = p[2] = level;
      }
    }
  }
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  const bool ok = Encode(pixels.data(), width, height, quality, &buffer, &size);
  std::string jpeg;
  if (ok && buffer != nullptr) jpeg.assign(reinterpret_cast<const char*>(buffer), size);
  std::free(buffer);
  return jpeg;
}

}  // namespace camsim
