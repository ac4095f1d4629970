// ClipSource.h - media bins that play a clip from memory: live (looping,
// paced by the clock, shared) or a recording (seekable, ends at its stop).
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>

#include "Clip.h"
#include "camera_sim/RtspServer.h"

namespace camsim {

// appsrc ! clocksync ! rtph26Xpay name=pay0. The clip loops with continuous
// timestamps; after a stall (no client was playing) it resumes at a key frame.
GstElement* MakeLiveBin(std::shared_ptr<const Clip> clip);

// appsrc ! rtph26Xpay name=pay0, seekable in time, lasting the recording's
// span; the clip loops to fill it. It ends at the recording's stop or at the
// stop of the range being played.
GstElement* MakeRecordingBin(std::shared_ptr<const Clip> clip, const RecordingClip& recording);

// The recording a bin made by MakeRecordingBin plays; null for live bins.
const RecordingClip* RecordingOfBin(GstElement* bin);

}  // namespace camsim
