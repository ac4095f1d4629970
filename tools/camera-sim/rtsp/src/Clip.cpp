#include "Clip.h"

#include <gst/app/gstappsink.h>

#include <map>
#include <mutex>

namespace camsim {
namespace {

constexpr GstClockTime kLoadTimeout = 30 * GST_SECOND;

bool Fail(std::string* error, const std::string& message) {
  if (error) *error = message;
  return false;
}

// Reads the file through the codec's parser so each buffer is one access unit
// with its key-frame flag set.
bool ReadAccessUnits(const std::string& path, const std::string& codec, Clip* clip, std::string* error) {
  GObjectPtr<GstElement> pipeline(GST_ELEMENT(g_object_ref_sink(gst_pipeline_new(nullptr))));
  GstElement* source = gst_element_factory_make("filesrc", nullptr);
  GstElement* parser = gst_element_factory_make(codec == "h265" ? "h265parse" : "h264parse", nullptr);
  GstElement* filter = gst_element_factory_make("capsfilter", nullptr);
  GstElement* sink = gst_element_factory_make("appsink", nullptr);
  if (!source || !parser || !filter || !sink) {
    for (GstElement* element : {source, parser, filter, sink}) {
      if (element) gst_object_unref(gst_object_ref_sink(element));
    }
    return Fail(error, "GStreamer elements for reading " + codec + " are missing");
  }
  gst_bin_add_many(GST_BIN(pipeline.get()), source, parser, filter, sink, nullptr);
  g_object_set(source, "location", path.c_str(), nullptr);
  GstMiniPtr<GstCaps> wanted(gst_caps_new_simple(codec == "h265" ? "video/x-h265" : "video/x-h264", "stream-format",
                                                 G_TYPE_STRING, "byte-stream", "alignment", G_TYPE_STRING, "au",
                                                 nullptr));
  g_object_set(filter, "caps", wanted.get(), nullptr);
  g_object_set(sink, "sync", FALSE, nullptr);
  if (!gst_element_link_many(source, parser, filter, sink, nullptr)) return Fail(error, "cannot link clip reader");
  if (gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    return Fail(error, "cannot read " + path);
  }
  bool ok = true;
  for (;;) {
    GstMiniPtr<GstSample> sample(gst_app_sink_try_pull_sample(GST_APP_SINK(sink), kLoadTimeout));
    if (!sample) {
      if (!gst_app_sink_is_eos(GST_APP_SINK(sink))) ok = Fail(error, "reading " + path + " failed or timed out");
      break;
    }
    GstBuffer* buffer = gst_sample_get_buffer(sample.get());
    if (!buffer) continue;
    if (!clip->caps) clip->caps.reset(gst_caps_copy(gst_sample_get_caps(sample.get())));
    clip->keyFrame.push_back(!GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT));
    clip->frames.emplace_back(gst_buffer_ref(buffer));
  }
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  return ok;
}

}  // namespace

size_t Clip::KeyFrameAtOrBefore(size_t index) const {
  for (size_t i = index + 1; i-- > 0;) {
    if (keyFrame[i]) return i;
  }
  return 0;
}

size_t Clip::NextKeyFrame(size_t index) const {
  for (size_t step = 0; step < frames.size(); ++step) {
    size_t i = (index + step) % frames.size();
    if (keyFrame[i]) return i;
  }
  return 0;
}

std::string ClipPath(const std::string& mediaDir, const std::string& codec) {
  return mediaDir + "/clip." + (codec == "h265" ? "h265" : "h264");
}

std::shared_ptr<const Clip> LoadClip(const std::string& mediaDir, const std::string& codec, std::string* error) {
  static std::mutex mutex;
  static std::map<std::string, std::shared_ptr<const Clip>> cache;
  const std::string path = ClipPath(mediaDir, codec);
  std::lock_guard<std::mutex> lock(mutex);
  auto found = cache.find(path);
  if (found != cache.end()) return found->second;

  if (!g_file_test(path.c_str(), G_FILE_TEST_IS_REGULAR)) {
    Fail(error, "clip " + path + " is missing (scripts/make-media.sh creates it)");
    return nullptr;
  }
  auto clip = std::make_shared<Clip>();
  clip->codec = codec;
  if (!ReadAccessUnits(path, codec, clip.get(), error)) return nullptr;
  if (clip->frames.empty() || !clip->keyFrame.front() || !clip->caps) {
    Fail(error, "clip " + path + " does not start with a key frame");
    return nullptr;
  }
  // The caps describe a clip that plays in a loop at a steady rate.
  clip->caps.reset(gst_caps_make_writable(clip->caps.release()));
  gst_caps_set_simple(clip->caps.get(), "framerate", GST_TYPE_FRACTION, 25, 1, nullptr);
  cache.emplace(path, clip);
  return clip;
}

}  // namespace camsim
