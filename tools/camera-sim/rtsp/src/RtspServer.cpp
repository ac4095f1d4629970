#include "camera_sim/RtspServer.h"

#include <gst/rtsp-server/rtsp-server.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <mutex>
#include <thread>

#include "Clip.h"
#include "FaultRelay.h"
#include "GstPtr.h"
#include "RtspTypes.h"
#include "evlog.h"

#ifndef NETCAM_CAMSIM_MEDIA_DIR
#define NETCAM_CAMSIM_MEDIA_DIR "media"
#endif

namespace camsim {
namespace {

constexpr const char* kLogModule = "camsim-rtsp";
constexpr const char* kMountPath = "/axis-media/media.amp";
constexpr const char* kRole = "user";
constexpr auto kCloseTimeout = std::chrono::seconds(5);

std::string ResolveMediaDir(const std::string& configured) {
  if (!configured.empty()) return configured;
  if (const char* fromEnvironment = std::getenv("NETCAM_MEDIA_DIR"); fromEnvironment && *fromEnvironment) {
    return fromEnvironment;
  }
  return NETCAM_CAMSIM_MEDIA_DIR;
}

bool Fail(std::string* error, const std::string& message) {
  evlog_write(EVLOG_ERROR, kLogModule, "%s", message.c_str());
  if (error) *error = message;
  return false;
}

// Runs `work` on the thread that owns `context` and waits for it.
void RunOn(GMainContext* context, const std::function<void()>& work) {
  struct Call {
    const std::function<void()>* work;
    std::promise<void> done;
  } call{&work, {}};
  auto finished = call.done.get_future();
  g_main_context_invoke(
      context,
      [](gpointer data) -> gboolean {
        auto* pending = static_cast<Call*>(data);
        (*pending->work)();
        pending->done.set_value();
        return G_SOURCE_REMOVE;
      },
      &call);
  finished.wait();
}

GstRTSPFilterResult CloseClient(GstRTSPServer*, GstRTSPClient* client, gpointer) {
  gst_rtsp_client_close(client);
  return GST_RTSP_FILTER_KEEP;
}

GstRTSPFilterResult RemoveSession(GstRTSPSessionPool*, GstRTSPSession*, gpointer) { return GST_RTSP_FILTER_REMOVE; }

int CountClients(GstRTSPServer* server) {
  GList* clients = gst_rtsp_server_client_filter(server, nullptr, nullptr);
  const int count = static_cast<int>(g_list_length(clients));
  g_list_free_full(clients, g_object_unref);
  return count;
}

// The DESCRIBE requests received, and the PLAY (with its range) and PAUSE
// requests, for tests; they arrive on the loop thread.
struct DescribeLog {
  mutable std::mutex mutex;
  std::vector<std::string> urls;
  std::vector<std::string> controls;
};

void LogControl(GstRTSPContext* ctx, gpointer user, const char* method) {
  auto* log = static_cast<DescribeLog*>(user);
  std::string line = method;
  gchar* range = nullptr;
  if (ctx != nullptr && ctx->request != nullptr &&
      gst_rtsp_message_get_header(ctx->request, GST_RTSP_HDR_RANGE, &range, 0) == GST_RTSP_OK && range != nullptr) {
    line += std::string(" ") + range;
  }
  std::lock_guard<std::mutex> lock(log->mutex);
  log->controls.push_back(std::move(line));
}

void OnPlay(GstRTSPClient*, GstRTSPContext* ctx, gpointer user) { LogControl(ctx, user, "PLAY"); }
void OnPause(GstRTSPClient*, GstRTSPContext* ctx, gpointer user) { LogControl(ctx, user, "PAUSE"); }

void OnDescribe(GstRTSPClient*, GstRTSPContext* ctx, gpointer user) {
  auto* log = static_cast<DescribeLog*>(user);
  if (ctx == nullptr || ctx->uri == nullptr) return;
  std::string url = ctx->uri->abspath != nullptr ? ctx->uri->abspath : "";
  if (ctx->uri->query != nullptr) url += std::string("?") + ctx->uri->query;
  std::lock_guard<std::mutex> lock(log->mutex);
  log->urls.push_back(std::move(url));
}

void OnClientConnected(GstRTSPServer*, GstRTSPClient* client, gpointer user) {
  g_signal_connect(client, "describe-request", G_CALLBACK(OnDescribe), user);
  g_signal_connect(client, "play-request", G_CALLBACK(OnPlay), user);
  g_signal_connect(client, "pause-request", G_CALLBACK(OnPause), user);
}

}  // namespace

struct RtspServer::Impl {
  explicit Impl(RtspConfig configIn) : config(std::move(configIn)) {
    if (!config.faults) config.faults = std::make_shared<FaultSet>();
  }

  bool Start(std::string* error);
  void Stop();
  void EndAllSessions();

  RtspConfig config;
  mutable std::mutex mutex;  // guards the members below against Start/Stop from other threads
  bool running = false;
  uint16_t port = 0;
  GMainContextPtr context;
  GMainLoopPtr loop;
  GObjectPtr<GstRTSPServer> server;
  GSourcePtr serverSource;
  GSourcePtr sessionSource;
  std::thread thread;
  std::unique_ptr<FaultRelay> relay;
  DescribeLog describeLog;
};

bool RtspServer::Impl::Start(std::string* error) {
  GError* initError = nullptr;
  if (!gst_init_check(nullptr, nullptr, &initError)) {
    GErrorPtr owned(initError);
    return Fail(error, std::string("GStreamer does not start: ") + (initError ? initError->message : "?"));
  }
  auto settings = std::make_shared<MediaSettings>();
  settings->mediaDir = ResolveMediaDir(config.mediaDir);
  settings->findRecording = config.findRecording;
  // Load the clips now: a missing clip is a set-up fault to report here, not
  // on a client's first DESCRIBE.
  std::string clipError;
  if (!LoadClip(settings->mediaDir, "h264", &clipError) || !LoadClip(settings->mediaDir, "h265", &clipError)) {
    return Fail(error, clipError);
  }

  context.reset(g_main_context_new());
  loop.reset(g_main_loop_new(context.get(), FALSE));
  server.reset(NewServer());
  gst_rtsp_server_set_address(server.get(), config.address.c_str());
  gst_rtsp_server_set_service(server.get(), "0");  // behind the relay, which takes config.port
  // The stock backlog of 5 makes a burst of clients wait for SYN retries.
  gst_rtsp_server_set_backlog(server.get(), 128);
  // Clients are served on this server's own loop, not a shared thread pool.
  GObjectPtr<GstRTSPThreadPool> threads(gst_rtsp_server_get_thread_pool(server.get()));
  gst_rtsp_thread_pool_set_max_threads(threads.get(), 0);

  GObjectPtr<GstRTSPAuth> auth(gst_rtsp_auth_new());
  gst_rtsp_auth_set_supported_methods(auth.get(), GST_RTSP_AUTH_DIGEST);
  gst_rtsp_auth_set_realm(auth.get(), ("AXIS_" + config.serial).c_str());
  GstRTSPToken* token = gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, kRole, nullptr);
  gst_rtsp_auth_add_digest(auth.get(), config.user.c_str(), config.password.c_str(), token);
  gst_rtsp_token_unref(token);
  gst_rtsp_server_set_auth(server.get(), auth.get());

  GstRTSPMediaFactory* factory = NewMediaFactory(std::move(settings));
  gst_rtsp_media_factory_set_shared(factory, TRUE);
  gst_rtsp_media_factory_add_role(factory, kRole, GST_RTSP_PERM_MEDIA_FACTORY_ACCESS, G_TYPE_BOOLEAN, TRUE,
                                  GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE, nullptr);
  GObjectPtr<GstRTSPMountPoints> mounts(gst_rtsp_server_get_mount_points(server.get()));
  gst_rtsp_mount_points_add_factory(mounts.get(), kMountPath, factory);  // takes the factory

  GError* bindError = nullptr;
  serverSource.reset(gst_rtsp_server_create_source(server.get(), nullptr, &bindError));
  std::string relayError;
  relay = std::make_unique<FaultRelay>(config.faults);
  if (!serverSource ||
      !relay->Start(config.address, config.port, static_cast<uint16_t>(gst_rtsp_server_get_bound_port(server.get())),
                    &relayError)) {
    GErrorPtr owned(bindError);
    std::string message = !serverSource
                              ? "cannot listen on " + config.address + ": " + (bindError ? bindError->message : "?")
                              : relayError;
    relay.reset();
    serverSource.reset();
    server.reset();
    loop.reset();
    context.reset();
    return Fail(error, message);
  }
  g_signal_connect(server.get(), "client-connected", G_CALLBACK(OnClientConnected), &describeLog);
  g_source_attach(serverSource.get(), context.get());
  GObjectPtr<GstRTSPSessionPool> pool(gst_rtsp_server_get_session_pool(server.get()));
  sessionSource.reset(gst_rtsp_session_pool_create_watch(pool.get()));
  // Sessions whose client went away without TEARDOWN expire on this loop.
  GstRTSPSessionPoolFunc expire = [](GstRTSPSessionPool* sessions, gpointer) -> gboolean {
    gst_rtsp_session_pool_cleanup(sessions);
    return G_SOURCE_CONTINUE;
  };
  g_source_set_callback(sessionSource.get(), G_SOURCE_FUNC(expire), nullptr, nullptr);
  g_source_attach(sessionSource.get(), context.get());
  port = relay->Port();

  thread = std::thread([ctx = context.get(), mainLoop = loop.get()] {
    g_main_context_push_thread_default(ctx);
    g_main_loop_run(mainLoop);
    g_main_context_pop_thread_default(ctx);
  });
  running = true;
  evlog_write(EVLOG_INFO, kLogModule, "RTSP server on %s:%u", config.address.c_str(), port);
  return true;
}

// On the loop: closes every connection and drops every session with its media.
void RtspServer::Impl::EndAllSessions() {
  gst_rtsp_server_client_filter(server.get(), CloseClient, nullptr);
  GObjectPtr<GstRTSPSessionPool> pool(gst_rtsp_server_get_session_pool(server.get()));
  GList* removed = gst_rtsp_session_pool_filter(pool.get(), RemoveSession, nullptr);
  g_list_free_full(removed, g_object_unref);
}

void RtspServer::Impl::Stop() {
  relay->Stop();  // clients see their connections end at once
  relay.reset();
  RunOn(context.get(), [this] {
    serverSource.reset();  // no new connections
    EndAllSessions();
  });
  // Closed clients leave the server from the loop; let it finish that.
  const auto deadline = std::chrono::steady_clock::now() + kCloseTimeout;
  while (CountClients(server.get()) > 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  RunOn(context.get(), [this] {
    sessionSource.reset();
    g_main_loop_quit(loop.get());
  });
  thread.join();
  // Dispatch what is still pending (finished clients' clean-up) on this thread.
  g_main_context_push_thread_default(context.get());
  while (g_main_context_iteration(context.get(), FALSE)) {
  }
  server.reset();
  while (g_main_context_iteration(context.get(), FALSE)) {
  }
  g_main_context_pop_thread_default(context.get());
  loop.reset();
  context.reset();
  running = false;
  evlog_write(EVLOG_INFO, kLogModule, "RTSP server on %s:%u stopped", config.address.c_str(), port);
}

RtspServer::RtspServer(RtspConfig config) : m_impl(std::make_unique<Impl>(std::move(config))) {}

RtspServer::~RtspServer() { Stop(); }

bool RtspServer::Start(std::string* error) {
  std::lock_guard<std::mutex> lock(m_impl->mutex);
  if (m_impl->running) return true;
  return m_impl->Start(error);
}

void RtspServer::Stop() {
  std::lock_guard<std::mutex> lock(m_impl->mutex);
  if (m_impl->running) m_impl->Stop();
}

uint16_t RtspServer::Port() const {
  std::lock_guard<std::mutex> lock(m_impl->mutex);
  return m_impl->running ? m_impl->port : 0;
}

int RtspServer::ClientCount() const {
  std::lock_guard<std::mutex> lock(m_impl->mutex);
  return m_impl->running ? CountClients(m_impl->server.get()) : 0;
}

void RtspServer::DisconnectAll() {
  std::lock_guard<std::mutex> lock(m_impl->mutex);
  if (!m_impl->running) return;
  RunOn(m_impl->context.get(), [this] { m_impl->EndAllSessions(); });
  evlog_write(EVLOG_INFO, kLogModule, "all RTSP sessions ended");
}

std::vector<std::string> RtspServer::DescribedUrls() const {
  std::lock_guard<std::mutex> lock(m_impl->describeLog.mutex);
  return m_impl->describeLog.urls;
}

FaultSet& RtspServer::Faults() { return *m_impl->config.faults; }

std::vector<std::string> RtspServer::ControlRequests() const {
  std::lock_guard<std::mutex> lock(m_impl->describeLog.mutex);
  return m_impl->describeLog.controls;
}

}  // namespace camsim
