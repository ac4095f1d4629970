#include "ClipSource.h"

#include <gst/app/gstappsrc.h>

#include <mutex>

namespace camsim {
namespace {

constexpr const char* kRecordingKey = "camsim-recording";
// A live source this far behind the clock skips ahead instead of bursting.
constexpr GstClockTime kMaxLiveLag = 200 * GST_MSECOND;

struct FeedState {
  std::shared_ptr<const Clip> clip;
  std::mutex mutex;
  size_t nextFrame = 0;
  GstClockTime nextPts = GST_CLOCK_TIME_NONE;
  GstClockTime endPts = GST_CLOCK_TIME_NONE;  // recordings: where the stream ends
  GstClockTime duration = GST_CLOCK_TIME_NONE;
  bool ended = false;
};

void DeleteFeedState(gpointer state) { delete static_cast<FeedState*>(state); }

// Pushes the next frame with `pts`; the buffer shares the clip's memory.
void PushFrame(GstAppSrc* appsrc, FeedState* state, GstClockTime pts) {
  const Clip& clip = *state->clip;
  GstBuffer* buffer = gst_buffer_copy(clip.frames[state->nextFrame].get());
  GST_BUFFER_PTS(buffer) = pts;
  GST_BUFFER_DTS(buffer) = pts;  // no B-frames: decode order is display order
  GST_BUFFER_DURATION(buffer) = clip.frameDuration;
  state->nextFrame = (state->nextFrame + 1) % clip.frames.size();
  state->nextPts = pts + clip.frameDuration;
  gst_app_src_push_buffer(appsrc, buffer);
}

void OnLiveNeedData(GstAppSrc* appsrc, guint, gpointer data) {
  auto* state = static_cast<FeedState*>(data);
  std::lock_guard<std::mutex> lock(state->mutex);
  // appsrc waits for the buffer it asks for, so always push one.
  GstClockTime now = GST_CLOCK_TIME_IS_VALID(state->nextPts) ? state->nextPts : 0;
  if (GstClock* clock = gst_element_get_clock(GST_ELEMENT(appsrc))) {
    now = gst_clock_get_time(clock) - gst_element_get_base_time(GST_ELEMENT(appsrc));
    gst_object_unref(clock);
  }
  if (!GST_CLOCK_TIME_IS_VALID(state->nextPts)) {
    state->nextPts = now;
  } else if (state->nextPts + kMaxLiveLag < now) {
    // Frames were held back while nobody played; a camera would not send
    // them late, and a decoder can only rejoin at a key frame.
    state->nextPts = now;
    state->nextFrame = state->clip->NextKeyFrame(state->nextFrame);
  }
  PushFrame(appsrc, state, state->nextPts);
}

void OnRecordingNeedData(GstAppSrc* appsrc, guint, gpointer data) {
  auto* state = static_cast<FeedState*>(data);
  std::lock_guard<std::mutex> lock(state->mutex);
  if (state->ended) return;
  if (!GST_CLOCK_TIME_IS_VALID(state->nextPts)) state->nextPts = 0;
  GstClockTime end = state->duration;
  if (GST_CLOCK_TIME_IS_VALID(state->endPts) && state->endPts < end) end = state->endPts;
  if (state->nextPts >= end) {
    state->ended = true;
    gst_app_src_end_of_stream(appsrc);
    return;
  }
  PushFrame(appsrc, state, state->nextPts);
}

gboolean OnRecordingSeek(GstAppSrc*, guint64 offset, gpointer data) {
  auto* state = static_cast<FeedState*>(data);
  std::lock_guard<std::mutex> lock(state->mutex);
  const Clip& clip = *state->clip;
  // The clip loops to fill the recording; start at a key frame so the first
  // picture after the seek decodes, stamped with the time asked for.
  const size_t frame = static_cast<size_t>(offset / clip.frameDuration) % clip.frames.size();
  state->nextFrame = clip.KeyFrameAtOrBefore(frame);
  state->nextPts = offset;
  state->ended = false;
  // The new segment, and with it the stop, only follows the first buffer.
  state->endPts = GST_CLOCK_TIME_NONE;
  return TRUE;
}

// The segment after a seek carries the stop of the range being played.
GstPadProbeReturn OnRecordingSegment(GstPad*, GstPadProbeInfo* info, gpointer data) {
  GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
  if (GST_EVENT_TYPE(event) == GST_EVENT_SEGMENT) {
    const GstSegment* segment = nullptr;
    gst_event_parse_segment(event, &segment);
    auto* state = static_cast<FeedState*>(data);
    std::lock_guard<std::mutex> lock(state->mutex);
    state->endPts = segment->format == GST_FORMAT_TIME ? segment->stop : GST_CLOCK_TIME_NONE;
  }
  return GST_PAD_PROBE_OK;
}

GstElement* MakePayloader(const Clip& clip) {
  GstElement* payloader = gst_element_factory_make(clip.codec == "h265" ? "rtph265pay" : "rtph264pay", "pay0");
  if (!payloader) return nullptr;
  // Parameter sets in band before every key frame, as the cameras send them.
  g_object_set(payloader, "pt", 96, "config-interval", -1, nullptr);
  return payloader;
}

GstElement* MakeAppSrc(const Clip& clip) {
  GstElement* appsrc = gst_element_factory_make("appsrc", "src");
  if (!appsrc) return nullptr;
  g_object_set(appsrc, "caps", clip.caps.get(), "format", GST_FORMAT_TIME, nullptr);
  return appsrc;
}

// Adds the elements to a new bin and links them in order; null on failure.
GstElement* AssembleBin(std::initializer_list<GstElement*> elements) {
  bool complete = true;
  for (GstElement* element : elements) complete = complete && element;
  if (!complete) {
    for (GstElement* element : elements) {
      if (element) gst_object_unref(gst_object_ref_sink(element));
    }
    return nullptr;
  }
  GstElement* bin = gst_bin_new(nullptr);
  GstElement* previous = nullptr;
  for (GstElement* element : elements) {
    gst_bin_add(GST_BIN(bin), element);
    if (previous && !gst_element_link(previous, element)) {
      gst_object_unref(gst_object_ref_sink(bin));
      return nullptr;
    }
    previous = element;
  }
  return bin;
}

}  // namespace

GstElement* MakeLiveBin(std::shared_ptr<const Clip> clip) {
  GstElement* appsrc = MakeAppSrc(*clip);
  GstElement* bin = AssembleBin({appsrc, gst_element_factory_make("clocksync", nullptr), MakePayloader(*clip)});
  if (!bin) return nullptr;
  g_object_set(appsrc, "is-live", TRUE, "min-latency", G_GINT64_CONSTANT(0), nullptr);
  auto* state = new FeedState;
  state->clip = std::move(clip);
  GstAppSrcCallbacks callbacks = {};
  callbacks.need_data = OnLiveNeedData;
  gst_app_src_set_callbacks(GST_APP_SRC(appsrc), &callbacks, state, DeleteFeedState);
  return bin;
}

GstElement* MakeRecordingBin(std::shared_ptr<const Clip> clip, const RecordingClip& recording) {
  GstElement* appsrc = MakeAppSrc(*clip);
  GstElement* bin = AssembleBin({appsrc, MakePayloader(*clip)});
  if (!bin) return nullptr;
  auto* state = new FeedState;
  state->clip = std::move(clip);
  state->duration = static_cast<GstClockTime>(recording.stopUtc - recording.startUtc) * GST_SECOND;
  g_object_set(appsrc, "stream-type", GST_APP_STREAM_TYPE_SEEKABLE, "duration", state->duration, nullptr);
  GstPad* pad = gst_element_get_static_pad(appsrc, "src");
  gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, OnRecordingSegment, state, nullptr);
  gst_object_unref(pad);
  GstAppSrcCallbacks callbacks = {};
  callbacks.need_data = OnRecordingNeedData;
  callbacks.seek_data = OnRecordingSeek;
  // appsrc owns the state and outlives the probe, which goes with its pad.
  gst_app_src_set_callbacks(GST_APP_SRC(appsrc), &callbacks, state, DeleteFeedState);
  g_object_set_data_full(G_OBJECT(bin), kRecordingKey, new RecordingClip(recording),
                         [](gpointer data) { delete static_cast<RecordingClip*>(data); });
  return bin;
}

const RecordingClip* RecordingOfBin(GstElement* bin) {
  return bin ? static_cast<const RecordingClip*>(g_object_get_data(G_OBJECT(bin), kRecordingKey)) : nullptr;
}

}  // namespace camsim
