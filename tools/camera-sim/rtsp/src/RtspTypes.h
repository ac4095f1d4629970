// RtspTypes.h - the simulator's subclasses of the GStreamer RTSP server types:
// a media factory that picks the pipeline from the URL's query, a client that
// plays recordings by clock range, and a server that makes such clients.
#pragma once

#include <gst/rtsp-server/rtsp-server.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "camera_sim/RtspServer.h"

namespace camsim {

struct MediaSettings {
  std::string mediaDir;
  std::function<std::optional<RecordingClip>(const std::string& id)> findRecording;
};

// Serves /axis-media/media.amp for every query; shared media per live query,
// one media per recording client.
GstRTSPMediaFactory* NewMediaFactory(std::shared_ptr<const MediaSettings> settings);

// A GstRTSPServer whose clients translate clock ranges for recordings.
GstRTSPServer* NewServer();

}  // namespace camsim
