#include "HttpServer.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <thread>

#include "evlog.h"

namespace camsim {

namespace {

constexpr const char* kLogModule = "camera-sim";
constexpr std::chrono::milliseconds kPaceSlice{50};

// One request in flight; owned by MHD's per-request pointer from the URI
// callback until the completion callback.
struct PendingRequest {
  HttpRequest request;
  bool headersSeen = false;
};

void LogFromMhd(void*, const char* format, va_list args) {
  char line[512];
  std::vsnprintf(line, sizeof(line), format, args);
  size_t length = std::strlen(line);
  while (length > 0 && (line[length - 1] == '\n' || line[length - 1] == '\r')) line[--length] = '\0';
  evlog_write(EVLOG_WARN, kLogModule, "http server: %s", line);
}

MHD_Result CollectHeader(void* cls, MHD_ValueKind, const char* key, const char* value) {
  auto* headers = static_cast<std::map<std::string, std::string>*>(cls);
  if (key != nullptr) (*headers)[ToLower(key)] = value != nullptr ? value : "";
  return MHD_YES;
}

// A body handed to MHD piece by piece: generated filler (the Huge fault), sent
// at a pace (Slow) or stopped short (Cut). Runs on the connection's own thread,
// so pacing may sleep there; it gives up as soon as the server stops.
struct BodySource {
  std::string body;
  bool filler = false;
  size_t size = 0;
  size_t cutAfter = SIZE_MAX;
  size_t bytesPerSecond = 0;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  const std::atomic<bool>* stopping = nullptr;

  static ssize_t Read(void* cls, uint64_t position, char* buffer, size_t max) {
    auto* self = static_cast<BodySource*>(cls);
    if (position >= self->cutAfter) return MHD_CONTENT_READER_END_WITH_ERROR;
    size_t count = std::min<uint64_t>({max, self->size - position, self->cutAfter - position});
    if (self->bytesPerSecond > 0) {
      count = std::min(count, std::max<size_t>(1, self->bytesPerSecond / 10));
      const auto due = self->start + std::chrono::microseconds(position * 1000000 / self->bytesPerSecond);
      for (auto now = std::chrono::steady_clock::now(); now < due; now = std::chrono::steady_clock::now()) {
        if (self->stopping->load()) return MHD_CONTENT_READER_END_WITH_ERROR;
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(due - now, kPaceSlice));
      }
    }
    for (size_t i = 0; i < count; ++i) {
      buffer[i] = self->filler ? static_cast<char>('a' + (position + i) % 26) : self->body[position + i];
    }
    return static_cast<ssize_t>(count);
  }
  static void Free(void* cls) { delete static_cast<BodySource*>(cls); }
};

// An abortive close now: the peer gets a TCP reset, and MHD later closes a
// socket that is already disconnected.
void ResetConnection(MHD_Connection* connection) {
  const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  if (info == nullptr) return;
  sockaddr unspecified{};
  unspecified.sa_family = AF_UNSPEC;
  ::connect(info->connect_fd, &unspecified, sizeof unspecified);
}

}  // namespace

struct HttpServer::Impl {
  Options options;
  Handler handler;
  MHD_Daemon* daemon = nullptr;
  uint16_t port = 0;
  std::atomic<bool> stopping{false};

  static void* OnUri(void* cls, const char* uri, MHD_Connection*) {
    (void)cls;
    auto pending = std::make_unique<PendingRequest>();
    const char* question = uri != nullptr ? std::strchr(uri, '?') : nullptr;
    if (question != nullptr) pending->request.query = question + 1;
    return pending.release();
  }

  static void OnCompleted(void*, MHD_Connection*, void** requestContext, MHD_RequestTerminationCode) {
    std::unique_ptr<PendingRequest> pending(static_cast<PendingRequest*>(*requestContext));
    *requestContext = nullptr;
  }

  static MHD_Result OnRequest(void* cls, MHD_Connection* connection, const char* url, const char* method, const char*,
                              const char* uploadData, size_t* uploadDataSize, void** requestContext) {
    auto* self = static_cast<Impl*>(cls);
    auto* pending = static_cast<PendingRequest*>(*requestContext);
    if (pending == nullptr) return MHD_NO;  // the URI callback always sets it
    HttpRequest& request = pending->request;

    if (!pending->headersSeen) {
      pending->headersSeen = true;
      request.method = method != nullptr ? method : "";
      request.path = url != nullptr ? url : "";
      MHD_get_connection_values(connection, MHD_HEADER_KIND, &CollectHeader, &request.headers);
      auto length = request.headers.find("content-length");
      if (length != request.headers.end()) {
        unsigned long long declared = std::strtoull(length->second.c_str(), nullptr, 10);
        if (declared > self->options.maxBodyBytes) {
          // Answer before reading: the client learns at once, and the body is never buffered.
          request.bodyTooLarge = true;
          return self->Answer(connection, request);
        }
      }
      return MHD_YES;
    }
    if (*uploadDataSize != 0) {
      if (!request.bodyTooLarge) {
        if (request.body.size() + *uploadDataSize > self->options.maxBodyBytes) {
          request.bodyTooLarge = true;
          request.body.clear();
          request.body.shrink_to_fit();
        } else {
          request.body.append(uploadData, *uploadDataSize);
        }
      }
      *uploadDataSize = 0;
      return MHD_YES;
    }
    return self->Answer(connection, request);
  }

  MHD_Result Answer(MHD_Connection* connection, HttpRequest& request) {
    HttpResponse answer = handler(request);
    if (answer.reset) ResetConnection(connection);
    if (answer.drop || answer.reset) return MHD_NO;  // MHD closes the socket without a reply

    const bool hasBody = answer.fillerBytes > 0 || !answer.body.empty();
    MHD_Response* response = nullptr;
    if (answer.fillerBytes > 0 || answer.bytesPerSecond > 0 || answer.cutAfter != SIZE_MAX) {
      auto source = std::make_unique<BodySource>();
      source->filler = answer.fillerBytes > 0;
      source->size = source->filler ? answer.fillerBytes : answer.body.size();
      source->body = std::move(answer.body);
      source->cutAfter = answer.cutAfter;
      source->bytesPerSecond = answer.bytesPerSecond;
      source->stopping = &stopping;
      response = MHD_create_response_from_callback(source->size, 64 * 1024, &BodySource::Read, source.get(),
                                                   &BodySource::Free);
      if (response != nullptr) source.release();
    } else {
      response = MHD_create_response_from_buffer(answer.body.size(), const_cast<char*>(answer.body.data()),
                                                 MHD_RESPMEM_MUST_COPY);
    }
    if (response == nullptr) return MHD_NO;
    if (!answer.contentType.empty() && hasBody) {
      MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.contentType.c_str());
    }
    for (const auto& [name, value] : answer.headers) {
      MHD_add_response_header(response, name.c_str(), value.c_str());
    }
    MHD_Result result = MHD_queue_response(connection, static_cast<unsigned int>(answer.status), response);
    MHD_destroy_response(response);
    return result;
  }
};

HttpServer::HttpServer(Options options, Handler handler) : m_impl(std::make_unique<Impl>()) {
  m_impl->options = std::move(options);
  m_impl->handler = std::move(handler);
}

HttpServer::~HttpServer() { Stop(); }

bool HttpServer::Start(std::string* error) {
  auto fail = [&](const std::string& message) {
    if (error != nullptr) *error = message;
    evlog_write(EVLOG_ERROR, kLogModule, "%s", message.c_str());
    return false;
  };
  if (m_impl->daemon != nullptr) return true;
  m_impl->stopping = false;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(m_impl->options.port);
  if (inet_pton(AF_INET, m_impl->options.address.c_str(), &address.sin_addr) != 1) {
    return fail("cannot use address '" + m_impl->options.address + "': not an IPv4 address");
  }
  const unsigned flags =
      MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_POLL | MHD_USE_ERROR_LOG;
  m_impl->daemon =
      MHD_start_daemon(flags, m_impl->options.port, nullptr, nullptr, &Impl::OnRequest, m_impl.get(),
                       MHD_OPTION_EXTERNAL_LOGGER, &LogFromMhd, nullptr, MHD_OPTION_SOCK_ADDR, &address,
                       MHD_OPTION_CONNECTION_TIMEOUT, m_impl->options.connectionTimeoutSeconds,
                       MHD_OPTION_CONNECTION_LIMIT, m_impl->options.maxConnections, MHD_OPTION_URI_LOG_CALLBACK,
                       &Impl::OnUri, nullptr, MHD_OPTION_NOTIFY_COMPLETED, &Impl::OnCompleted, nullptr, MHD_OPTION_END);
  if (m_impl->daemon == nullptr) {
    return fail("cannot listen on " + m_impl->options.address + ":" + std::to_string(m_impl->options.port) +
                " (address in use, not local, or not permitted)");
  }
  const MHD_DaemonInfo* info = MHD_get_daemon_info(m_impl->daemon, MHD_DAEMON_INFO_BIND_PORT);
  m_impl->port = info != nullptr ? info->port : m_impl->options.port;
  return true;
}

void HttpServer::Stop() {
  if (m_impl->daemon != nullptr) {
    m_impl->stopping = true;  // paced bodies give up instead of holding their connection threads
    MHD_stop_daemon(m_impl->daemon);
    m_impl->daemon = nullptr;
  }
}

uint16_t HttpServer::Port() const { return m_impl->port; }

}  // namespace camsim
