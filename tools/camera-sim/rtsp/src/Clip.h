// Clip.h - an encoded clip held in memory as access units, loaded once per
// process and shared by every media that plays it.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>
#include <vector>

#include "GstPtr.h"

namespace camsim {

struct Clip {
  std::string codec;         // "h264" or "h265"
  GstMiniPtr<GstCaps> caps;  // byte-stream, one access unit per buffer
  std::vector<GstMiniPtr<GstBuffer>> frames;
  std::vector<bool> keyFrame;
  GstClockTime frameDuration = GST_SECOND / 25;

  size_t KeyFrameAtOrBefore(size_t index) const;
  size_t NextKeyFrame(size_t index) const;  // wraps around; `index` itself when it is one
};

// The clip of `codec` in `mediaDir` ("clip.h264", "clip.h265"). Cached per
// path; thread-safe. Nothing, with `error` filled, when the file is missing or
// holds no key frame.
std::shared_ptr<const Clip> LoadClip(const std::string& mediaDir, const std::string& codec, std::string* error);

// The file LoadClip reads for `codec`.
std::string ClipPath(const std::string& mediaDir, const std::string& codec);

}  // namespace camsim
