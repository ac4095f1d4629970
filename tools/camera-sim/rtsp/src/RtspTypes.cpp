#include "RtspTypes.h"

#include <cstring>

#include "ClipSource.h"
#include "ClockRange.h"
#include "GstPtr.h"
#include "MediaQuery.h"
#include "evlog.h"

namespace camsim {
namespace {
constexpr const char* kLogModule = "camsim-rtsp";
// Set on a client whose request named a recording the camera does not hold.
constexpr const char* kNotFoundKey = "camsim-not-found";
}  // namespace
}  // namespace camsim

// ---- media factory ---------------------------------------------------------

struct CamsimMediaFactory {
  GstRTSPMediaFactory parent;
  std::shared_ptr<const camsim::MediaSettings>* settings;  // owned; freed in finalize
};
struct CamsimMediaFactoryClass {
  GstRTSPMediaFactoryClass parentClass;
};

G_DEFINE_TYPE(CamsimMediaFactory, camsim_media_factory, GST_TYPE_RTSP_MEDIA_FACTORY)

namespace {

std::optional<camsim::MediaQuery> QueryOf(const GstRTSPUrl* url, std::string* error) {
  return camsim::ParseMediaQuery(url && url->query ? url->query : "", error);
}

GstElement* CreateElement(GstRTSPMediaFactory* factory, const GstRTSPUrl* url) {
  const camsim::MediaSettings& settings = **reinterpret_cast<CamsimMediaFactory*>(factory)->settings;
  std::string error;
  auto query = QueryOf(url, &error);
  if (!query) return nullptr;  // Construct refused it already
  if (query->kind == camsim::MediaQuery::Kind::Live) {
    auto clip = camsim::LoadClip(settings.mediaDir, query->codec, &error);
    if (!clip) {
      evlog_write(EVLOG_ERROR, camsim::kLogModule, "no live media: %s", error.c_str());
      return nullptr;
    }
    return camsim::MakeLiveBin(std::move(clip));
  }
  std::optional<camsim::RecordingClip> recording;
  if (settings.findRecording) recording = settings.findRecording(query->recordingId);
  if (!recording || recording->stopUtc <= recording->startUtc) return nullptr;  // changed since Construct looked
  auto clip = camsim::LoadClip(settings.mediaDir, recording->codec, &error);
  if (!clip) {
    evlog_write(EVLOG_ERROR, camsim::kLogModule, "no recording media: %s", error.c_str());
    return nullptr;
  }
  return camsim::MakeRecordingBin(std::move(clip), *recording);
}

// Refuses bad queries and unknown recordings before a pipeline is made; the
// client answers an unknown recording with 404 (see AdjustErrorCode).
GstRTSPMedia* Construct(GstRTSPMediaFactory* factory, const GstRTSPUrl* url) {
  const camsim::MediaSettings& settings = **reinterpret_cast<CamsimMediaFactory*>(factory)->settings;
  std::string error;
  auto query = QueryOf(url, &error);
  if (!query) {
    evlog_write(EVLOG_WARN, camsim::kLogModule, "refused media query: %s", error.c_str());
    return nullptr;
  }
  std::optional<camsim::RecordingClip> recording;
  if (query->kind == camsim::MediaQuery::Kind::Recording && settings.findRecording) {
    recording = settings.findRecording(query->recordingId);
  }
  if (query->kind == camsim::MediaQuery::Kind::Recording && (!recording || recording->stopUtc <= recording->startUtc)) {
    evlog_write(EVLOG_INFO, camsim::kLogModule, "no recording '%s' to play", query->recordingId.c_str());
    if (GstRTSPContext* ctx = gst_rtsp_context_get_current(); ctx && ctx->client) {
      g_object_set_data(G_OBJECT(ctx->client), camsim::kNotFoundKey, GINT_TO_POINTER(1));
    }
    return nullptr;
  }
  return GST_RTSP_MEDIA_FACTORY_CLASS(camsim_media_factory_parent_class)->construct(factory, url);
}

// Live media are shared per query (the default key holds it); recordings never.
gchar* GenKey(GstRTSPMediaFactory* factory, const GstRTSPUrl* url) {
  auto query = QueryOf(url, nullptr);
  if (query && query->kind == camsim::MediaQuery::Kind::Recording) return nullptr;
  return GST_RTSP_MEDIA_FACTORY_CLASS(camsim_media_factory_parent_class)->gen_key(factory, url);
}

void Configure(GstRTSPMediaFactory* factory, GstRTSPMedia* media) {
  GST_RTSP_MEDIA_FACTORY_CLASS(camsim_media_factory_parent_class)->configure(factory, media);
  camsim::GObjectPtr<GstElement> element(gst_rtsp_media_get_element(media));
  if (camsim::RecordingOfBin(element.get())) gst_rtsp_media_set_shared(media, FALSE);
}

void FinalizeFactory(GObject* object) {
  delete reinterpret_cast<CamsimMediaFactory*>(object)->settings;
  G_OBJECT_CLASS(camsim_media_factory_parent_class)->finalize(object);
}

}  // namespace

static void camsim_media_factory_class_init(CamsimMediaFactoryClass* klass) {
  GST_RTSP_MEDIA_FACTORY_CLASS(klass)->create_element = CreateElement;
  GST_RTSP_MEDIA_FACTORY_CLASS(klass)->construct = Construct;
  GST_RTSP_MEDIA_FACTORY_CLASS(klass)->gen_key = GenKey;
  GST_RTSP_MEDIA_FACTORY_CLASS(klass)->configure = Configure;
  G_OBJECT_CLASS(klass)->finalize = FinalizeFactory;
}

static void camsim_media_factory_init(CamsimMediaFactory* factory) { factory->settings = nullptr; }

// ---- client ----------------------------------------------------------------

struct CamsimClient {
  GstRTSPClient parent;
};
struct CamsimClientClass {
  GstRTSPClientClass parentClass;
};

G_DEFINE_TYPE(CamsimClient, camsim_client, GST_TYPE_RTSP_CLIENT)

namespace {

const camsim::RecordingClip* RecordingOfContext(GstRTSPContext* ctx) {
  if (!ctx->media) return nullptr;
  camsim::GObjectPtr<GstElement> element(gst_rtsp_media_get_element(ctx->media));
  // The bin lives as long as the media, which the context holds.
  return camsim::RecordingOfBin(element.get());
}

// The clock range of the PLAY request, when it has one.
std::optional<camsim::ClockRange> RequestedClockRange(GstRTSPContext* ctx) {
  gchar* header = nullptr;
  if (gst_rtsp_message_get_header(ctx->request, GST_RTSP_HDR_RANGE, &header, 0) != GST_RTSP_OK || !header) {
    return std::nullopt;
  }
  return camsim::ParseClockRange(header);
}

GstRTSPStatusCode AdjustPlayMode(GstRTSPClient*, GstRTSPContext* ctx, GstRTSPTimeRange** range, GstSeekFlags*, gdouble*,
                                 GstClockTime*, gboolean*) {
  if (!*range || (*range)->unit != GST_RTSP_RANGE_CLOCK) return GST_RTSP_STS_OK;
  const camsim::RecordingClip* recording = RecordingOfContext(ctx);
  auto clock = RequestedClockRange(ctx);
  gst_rtsp_range_free(*range);
  *range = nullptr;
  // Live video plays now whatever time is asked for.
  if (!recording) return GST_RTSP_STS_OK;
  if (!clock) return GST_RTSP_STS_BAD_REQUEST;
  auto window = camsim::WindowWithinRecording(*clock, recording->startUtc, recording->stopUtc);
  if (!window) return GST_RTSP_STS_INVALID_RANGE;
  char npt[64];
  g_snprintf(npt, sizeof npt, "npt=%.3f-%.3f", window->startOffset, window->stopOffset);
  if (gst_rtsp_range_parse(npt, range) != GST_RTSP_OK) return GST_RTSP_STS_INTERNAL_SERVER_ERROR;
  return GST_RTSP_STS_OK;
}

// Answers a clock range with the clock times being played.
GstRTSPStatusCode AdjustPlayResponse(GstRTSPClient*, GstRTSPContext* ctx) {
  const camsim::RecordingClip* recording = RecordingOfContext(ctx);
  auto clock = RequestedClockRange(ctx);
  if (!recording || !clock) return GST_RTSP_STS_OK;
  auto window = camsim::WindowWithinRecording(*clock, recording->startUtc, recording->stopUtc);
  if (!window) return GST_RTSP_STS_OK;
  const double base = static_cast<double>(recording->startUtc);
  std::string value = "clock=" + camsim::FormatClockTime(base + window->startOffset) + "-" +
                      camsim::FormatClockTime(base + window->stopOffset);
  gst_rtsp_message_remove_header(ctx->response, GST_RTSP_HDR_RANGE, -1);
  gst_rtsp_message_add_header(ctx->response, GST_RTSP_HDR_RANGE, value.c_str());
  return GST_RTSP_STS_OK;
}

GstRTSPStatusCode AdjustErrorCode(GstRTSPClient* client, GstRTSPContext*, GstRTSPStatusCode code) {
  if (g_object_steal_data(G_OBJECT(client), camsim::kNotFoundKey)) return GST_RTSP_STS_NOT_FOUND;
  return code;
}

}  // namespace

static void camsim_client_class_init(CamsimClientClass* klass) {
  GST_RTSP_CLIENT_CLASS(klass)->adjust_play_mode = AdjustPlayMode;
  GST_RTSP_CLIENT_CLASS(klass)->adjust_play_response = AdjustPlayResponse;
  GST_RTSP_CLIENT_CLASS(klass)->adjust_error_code = AdjustErrorCode;
}

static void camsim_client_init(CamsimClient*) {}

// ---- server ----------------------------------------------------------------

struct CamsimServer {
  GstRTSPServer parent;
};
struct CamsimServerClass {
  GstRTSPServerClass parentClass;
};

G_DEFINE_TYPE(CamsimServer, camsim_server, GST_TYPE_RTSP_SERVER)

namespace {

// As the stock server makes its clients, with our client type.
GstRTSPClient* CreateClient(GstRTSPServer* server) {
  auto* client = GST_RTSP_CLIENT(g_object_new(camsim_client_get_type(), nullptr));
  camsim::GObjectPtr<GstRTSPSessionPool> pool(gst_rtsp_server_get_session_pool(server));
  camsim::GObjectPtr<GstRTSPMountPoints> mounts(gst_rtsp_server_get_mount_points(server));
  camsim::GObjectPtr<GstRTSPAuth> auth(gst_rtsp_server_get_auth(server));
  camsim::GObjectPtr<GstRTSPThreadPool> threads(gst_rtsp_server_get_thread_pool(server));
  gst_rtsp_client_set_session_pool(client, pool.get());
  gst_rtsp_client_set_mount_points(client, mounts.get());
  gst_rtsp_client_set_content_length_limit(client, gst_rtsp_server_get_content_length_limit(server));
  gst_rtsp_client_set_auth(client, auth.get());
  gst_rtsp_client_set_thread_pool(client, threads.get());
  return client;
}

}  // namespace

static void camsim_server_class_init(CamsimServerClass* klass) {
  GST_RTSP_SERVER_CLASS(klass)->create_client = CreateClient;
}

static void camsim_server_init(CamsimServer*) {}

namespace camsim {

GstRTSPMediaFactory* NewMediaFactory(std::shared_ptr<const MediaSettings> settings) {
  auto* factory = reinterpret_cast<CamsimMediaFactory*>(g_object_new(camsim_media_factory_get_type(), nullptr));
  factory->settings = new std::shared_ptr<const MediaSettings>(std::move(settings));
  return GST_RTSP_MEDIA_FACTORY(factory);
}

GstRTSPServer* NewServer() { return GST_RTSP_SERVER(g_object_new(camsim_server_get_type(), nullptr)); }

}  // namespace camsim
