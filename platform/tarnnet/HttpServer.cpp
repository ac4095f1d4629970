// HttpServer.cpp - CHttpServer on libmicrohttpd: one polling thread (poll(2))
// per server, each complete request suspended until HttpServerSyncSend
// resumes it with its answer.
#include "HttpServer.h"

#include "Sockets.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "evlog.h"

namespace Tarn::Net {
namespace {

constexpr const char* kLogModule = "tarnnet";
using Clock = std::chrono::steady_clock;

struct Server;

// One request from its headers to its completion. Owned by MHD's request
// context; the link table points at it only while it waits for its answer.
struct Request {
  enum class State { Receiving, Waiting, Answered, Expired };
  Server* server = nullptr;
  MHD_Connection* connection = nullptr;
  State state = State::Receiving;
  bool begun = false;
  int32_t link = 0;
  Clock::time_point suspended;
  HttpRequest request;
  std::string body;
  HttpResponse response;
  std::string answer;
};

// One accepted connection, from accept to close. MHD times out only silence,
// so a peer that trickles its request a byte at a time is cut off by the
// reaper once the request has taken longer than allowed.
struct Connection {
  MHD_socket fd = MHD_INVALID_SOCKET;
  std::string peer;
  Clock::time_point requestBegan;  // accept, or the end of the previous request
  bool receiving = true;           // the current request is not complete yet
  bool cut = false;
};

struct Server {
  int32_t handle = 0;
  uint16_t port = 0;
  HttpServerLimits limits;
  HttpServerCallback callback;
  MHD_Daemon* daemon = nullptr;
  bool stopping = false;         // guarded by the link table's mutex
  std::atomic<int> expiring{0};  // released requests whose 503 is not yet out
  // Open connections. A connection leaves the set (under the mutex) before MHD
  // closes its socket, so the reaper never shuts down a socket it does not own.
  std::mutex connectionMutex;
  std::unordered_set<Connection*> connections;
  // Watches waiting requests for closed peers and for their answer time.
  std::thread reaper;
  std::mutex reaperMutex;
  std::condition_variable reaperWake;
  bool reaperStop = false;
};

void StopServerNow(std::unique_ptr<Server> server);

// Every server and every link of the process. The link mutex is held while a
// waiting request is resumed, so a request cannot complete (and be freed)
// under a resumer.
struct Registry {
  std::mutex linkMutex;
  std::unordered_map<int32_t, Request*> waiting;
  int32_t nextLink = 0;

  std::mutex serverMutex;
  std::unordered_map<int32_t, std::unique_ptr<Server>> servers;
  int32_t nextServer = 0;

  // A host that exits or unloads us without stopping a server must not leave
  // its thread running into unmapped code.
  ~Registry() {
    for (auto& entry : servers) StopServerNow(std::move(entry.second));
  }

  int32_t NewLink() {
    do {
      nextLink = nextLink == std::numeric_limits<int32_t>::max() ? 1 : nextLink + 1;
    } while (waiting.count(nextLink) != 0);
    return nextLink;
  }
};

Registry& GetRegistry() {
  static Registry registry;
  return registry;
}

// Marks a waiting request for release and hands it back to MHD's thread.
// Called with the link table's mutex held.
void ExpireLocked(Registry& table, Request* request) {
  request->state = Request::State::Expired;
  ++request->server->expiring;
  table.waiting.erase(request->link);
  MHD_resume_connection(request->connection);
}

MHD_Result QueueText(MHD_Connection* connection, unsigned status, const char* text) {
  MHD_Response* response =
      MHD_create_response_from_buffer(std::strlen(text), const_cast<char*>(text), MHD_RESPMEM_PERSISTENT);
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "text/plain");
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
  const MHD_Result result = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return result;
}

MHD_Result QueueAnswer(Request& request) {
  const HttpResponse& reply = request.response;
  MHD_Response* response =
      MHD_create_response_from_buffer(request.answer.size(), request.answer.data(), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, reply.strContentType.c_str());
  if (!reply.strCacheControl.empty())
    MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, reply.strCacheControl.c_str());
  if (!reply.strLocation.empty())
    MHD_add_response_header(response, MHD_HTTP_HEADER_LOCATION, reply.strLocation.c_str());
  if (!reply.strContentEncoding.empty())
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_ENCODING, reply.strContentEncoding.c_str());
  for (const auto& [name, value] : reply.mapHeaders) MHD_add_response_header(response, name.c_str(), value.c_str());
  if (reply.nCloseConnection != 0) MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
  if (reply.nTimeoutMs > 0) {
    const unsigned seconds = static_cast<unsigned>((reply.nTimeoutMs + 999) / 1000);
    MHD_set_connection_option(request.connection, MHD_CONNECTION_OPTION_TIMEOUT, seconds);
  }
  const MHD_Result result = MHD_queue_response(request.connection, static_cast<unsigned>(reply.nStatusCode), response);
  MHD_destroy_response(response);
  return result;
}

std::string PeerAddress(MHD_Connection* connection) {
  const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  char text[INET_ADDRSTRLEN] = {};
  if (info != nullptr && info->client_addr != nullptr && info->client_addr->sa_family == AF_INET) {
    const auto* in = reinterpret_cast<const sockaddr_in*>(info->client_addr);
    inet_ntop(AF_INET, &in->sin_addr, text, sizeof text);
  }
  return text;
}

// MHD hands the access handler the decoded path alone; the callback sees
// the request target as it was sent. The request's life starts here.
void* OnRequestLine(void* cls, const char* uri, MHD_Connection* connection) {
  auto* request = new Request;
  request->server = static_cast<Server*>(cls);
  request->connection = connection;
  request->request.strUrl = uri != nullptr ? uri : "";
  return request;
}

// First call for a request: the headers are in. Refuses what cannot be served.
MHD_Result BeginRequest(Server& server, Request& request, const char* method) {
  request.begun = true;
  request.request.strPeerAddress = PeerAddress(request.connection);
  request.request.strMethod = method;
  const char* length = MHD_lookup_connection_value(request.connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
  if (length != nullptr) {
    const unsigned long long declared = std::strtoull(length, nullptr, 10);
    if (declared > server.limits.nMaxBodyBytes) {
      evlog_write(EVLOG_WARN, kLogModule, "request from %s refused: body of %llu bytes over the limit of %zu",
                  request.request.strPeerAddress.c_str(), declared, server.limits.nMaxBodyBytes);
      return QueueText(request.connection, 413, "Request body too large\n");
    }
  }
  return MHD_YES;
}

// Body bytes as they arrive. False closes the connection.
bool TakeBody(Server& server, Request& request, const char* data, size_t size) {
  if (request.body.size() + size > server.limits.nMaxBodyBytes) {
    evlog_write(EVLOG_WARN, kLogModule, "request from %s closed: body over the limit of %zu bytes",
                request.request.strPeerAddress.c_str(), server.limits.nMaxBodyBytes);
    return false;
  }
  request.body.append(data, size);
  return true;
}

Connection* ConnectionOf(MHD_Connection* connection) {
  const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  return info != nullptr ? static_cast<Connection*>(info->socket_context) : nullptr;
}

// The connection's request is complete (receiving false), or it was answered
// and the next request on the connection begins now (receiving true).
void MarkReceiving(Server& server, MHD_Connection* connection, bool receiving) {
  Connection* state = ConnectionOf(connection);
  if (state == nullptr) return;
  std::lock_guard<std::mutex> lock(server.connectionMutex);
  state->receiving = receiving;
  if (receiving) state->requestBegan = Clock::now();
}

void OnConnection(void* cls, MHD_Connection* connection, void** socketContext, MHD_ConnectionNotificationCode code) {
  auto& server = *static_cast<Server*>(cls);
  std::lock_guard<std::mutex> lock(server.connectionMutex);
  if (code == MHD_CONNECTION_NOTIFY_STARTED) {
    auto state = std::make_unique<Connection>();
    const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    state->fd = info != nullptr ? info->connect_fd : MHD_INVALID_SOCKET;
    state->peer = PeerAddress(connection);
    state->requestBegan = Clock::now();
    server.connections.insert(state.get());
    *socketContext = state.release();
  } else if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
    std::unique_ptr<Connection> state(static_cast<Connection*>(*socketContext));
    server.connections.erase(state.get());
    *socketContext = nullptr;
  }
}

// The whole request is in: park it and hand it to the callback.
MHD_Result DispatchRequest(Server& server, Request& request) {
  Registry& table = GetRegistry();
  {
    std::lock_guard<std::mutex> lock(table.linkMutex);
    if (server.stopping) return QueueText(request.connection, MHD_HTTP_SERVICE_UNAVAILABLE, "Server stopping\n");
    request.link = table.NewLink();
    request.state = Request::State::Waiting;
    MarkReceiving(server, request.connection, false);
    request.suspended = Clock::now();
    table.waiting.emplace(request.link, &request);
    MHD_suspend_connection(request.connection);
  }
  request.request.pBody = request.body.data();
  request.request.nBodyLength = request.body.size();
  try {
    server.callback(request.link, request.request);
  } catch (const std::exception& error) {
    evlog_write(EVLOG_ERROR, kLogModule, "request callback threw: %s", error.what());
  } catch (...) {
    evlog_write(EVLOG_ERROR, kLogModule, "request callback threw");
  }
  return MHD_YES;
}

MHD_Result OnAccess(void* cls, MHD_Connection* connection, const char* url, const char* method, const char* /*version*/,
                    const char* uploadData, size_t* uploadSize, void** context) {
  auto& server = *static_cast<Server*>(cls);
  if (*context == nullptr) *context = OnRequestLine(cls, url, connection);  // not expected: MHD logs every URI
  auto& request = *static_cast<Request*>(*context);
  if (!request.begun) return BeginRequest(server, request, method);
  switch (request.state) {
    case Request::State::Receiving:
      if (*uploadSize != 0) {
        if (!TakeBody(server, request, uploadData, *uploadSize)) return MHD_NO;
        *uploadSize = 0;
        return MHD_YES;
      }
      return DispatchRequest(server, request);
    case Request::State::Answered:
      return QueueAnswer(request);
    case Request::State::Waiting:
      return MHD_YES;  // not ours to answer yet
    case Request::State::Expired:
      break;
  }
  return QueueText(connection, MHD_HTTP_SERVICE_UNAVAILABLE, "No answer\n");
}

void OnCompleted(void* cls, MHD_Connection* connection, void** context, MHD_RequestTerminationCode) {
  MarkReceiving(*static_cast<Server*>(cls), connection, true);
  auto* request = static_cast<Request*>(*context);
  if (request == nullptr) return;
  {
    Registry& table = GetRegistry();
    std::lock_guard<std::mutex> lock(table.linkMutex);
    if (request->state == Request::State::Waiting) table.waiting.erase(request->link);
  }
  if (request->state == Request::State::Expired) --request->server->expiring;
  delete request;
  *context = nullptr;
}

void OnLog(void* /*cls*/, const char* format, va_list args) {
  char text[512];
  std::vsnprintf(text, sizeof text, format, args);
  const size_t length = std::strlen(text);
  if (length > 0 && text[length - 1] == '\n') text[length - 1] = '\0';
  evlog_write(EVLOG_TRACE, kLogModule, "libmicrohttpd: %s", text);
}

// Shuts down the socket of every connection whose request (headers and body)
// is still arriving after the request time-out; MHD then closes it on its own
// thread. Called by the reaper only.
void CutSlowRequests(Server& server) {
  const auto deadline = Clock::now() - std::chrono::seconds(server.limits.nRequestTimeoutSeconds);
  std::lock_guard<std::mutex> lock(server.connectionMutex);
  for (Connection* connection : server.connections) {
    if (!connection->receiving || connection->cut || connection->requestBegan > deadline) continue;
    connection->cut = true;
    evlog_write(EVLOG_WARN, kLogModule, "connection from %s closed: request not complete after %u s",
                connection->peer.c_str(), server.limits.nRequestTimeoutSeconds);
    tarnnet::ShutdownSocket(connection->fd);
  }
}

// A waiting request is released when its peer has gone (MHD does not watch a
// suspended connection) or when nobody answered it in time. A peer that only
// shut down its sending side reads as gone too: cameras do not do that.
void ReleaseUnanswered(Server& server) {
  const auto deadline = Clock::now() - std::chrono::seconds(server.limits.nAnswerTimeoutSeconds);
  Registry& table = GetRegistry();
  std::lock_guard<std::mutex> lock(table.linkMutex);
  std::vector<Request*> expired;
  for (const auto& [link, request] : table.waiting) {
    if (request->server != &server) continue;
    bool gone = request->suspended < deadline;
    if (!gone) {
      const MHD_ConnectionInfo* info = MHD_get_connection_info(request->connection, MHD_CONNECTION_INFO_CONNECTION_FD);
      gone = info != nullptr && tarnnet::PeerHasClosed(info->connect_fd);
    }
    if (gone) expired.push_back(request);
  }
  for (Request* request : expired) {
    evlog_write(EVLOG_WARN, kLogModule, "link %d from %s released unanswered", request->link,
                request->request.strPeerAddress.c_str());
    ExpireLocked(table, request);
  }
}

// The reaper's thread: five rounds a second over waiting requests and
// connections still receiving.
void Reap(Server& server) {
  std::unique_lock<std::mutex> wait(server.reaperMutex);
  while (!server.reaperStop) {
    server.reaperWake.wait_for(wait, std::chrono::milliseconds(200));
    if (server.reaperStop) break;
    ReleaseUnanswered(server);
    CutSlowRequests(server);
  }
}

void StopServerNow(std::unique_ptr<Server> server) {
  if (!server) return;
  {
    std::lock_guard<std::mutex> lock(server->reaperMutex);
    server->reaperStop = true;
  }
  server->reaperWake.notify_all();
  server->reaper.join();
  const MHD_socket listener = MHD_quiesce_daemon(server->daemon);
  {
    // Every suspended request must be resumed before MHD may stop.
    Registry& links = GetRegistry();
    std::lock_guard<std::mutex> lock(links.linkMutex);
    server->stopping = true;
    std::vector<Request*> waiting;
    for (const auto& [link, request] : links.waiting)
      if (request->server == server.get()) waiting.push_back(request);
    for (Request* request : waiting) ExpireLocked(links, request);
  }
  // Lets the released requests have their 503 before every connection closes.
  for (int wait = 0; wait < 200 && server->expiring > 0; ++wait)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  MHD_stop_daemon(server->daemon);
  if (listener != MHD_INVALID_SOCKET) tarnnet::CloseSocket(listener);
  evlog_write(EVLOG_INFO, kLogModule, "HTTP server %d stopped", server->handle);
}

}  // namespace

int32_t CHttpServer::StartHttpServer(int32_t& handle, const std::string& address, uint16_t port,
                                     HttpServerCallback callback, const HttpServerLimits& limits) {
  handle = 0;
  sockaddr_in bindAddress{};
  bindAddress.sin_family = AF_INET;
  bindAddress.sin_port = htons(port);
  if (!callback || inet_pton(AF_INET, address.c_str(), &bindAddress.sin_addr) != 1 || limits.nMaxConnections == 0) {
    evlog_write(EVLOG_ERROR, kLogModule, "StartHttpServer: invalid address '%s' or settings", address.c_str());
    return kHttpErrInvalidArg;
  }
  auto server = std::make_unique<Server>();
  server->limits = limits;
  server->callback = std::move(callback);
  // poll, not epoll: with edge-triggered epoll libmicrohttpd misses a peer's
  // close that arrives with its last bytes, and a half-sent request then holds
  // its connection until the idle time runs out instead of closing at once.
  server->daemon = MHD_start_daemon(
      MHD_USE_POLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG, 0, nullptr, nullptr, &OnAccess,
      server.get(), MHD_OPTION_SOCK_ADDR, reinterpret_cast<sockaddr*>(&bindAddress), MHD_OPTION_CONNECTION_LIMIT,
      limits.nMaxConnections, MHD_OPTION_PER_IP_CONNECTION_LIMIT, limits.nMaxConnectionsPerAddress,
      MHD_OPTION_CONNECTION_TIMEOUT, limits.nIdleTimeoutSeconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
      static_cast<size_t>(16 * 1024), MHD_OPTION_NOTIFY_COMPLETED, &OnCompleted, server.get(),
      MHD_OPTION_NOTIFY_CONNECTION, &OnConnection, server.get(), MHD_OPTION_URI_LOG_CALLBACK, &OnRequestLine,
      server.get(), MHD_OPTION_EXTERNAL_LOGGER, &OnLog, nullptr, MHD_OPTION_END);
  if (server->daemon == nullptr) {
    evlog_write(EVLOG_ERROR, kLogModule, "StartHttpServer: cannot listen on %s:%u", address.c_str(), port);
    return kHttpErrStart;
  }
  const MHD_DaemonInfo* bound = MHD_get_daemon_info(server->daemon, MHD_DAEMON_INFO_BIND_PORT);
  server->port = bound != nullptr ? bound->port : port;
  Server* raw = server.get();
  raw->reaper = std::thread([raw] { Reap(*raw); });
  Registry& registry = GetRegistry();
  std::lock_guard<std::mutex> lock(registry.serverMutex);
  do {
    registry.nextServer = registry.nextServer == std::numeric_limits<int32_t>::max() ? 1 : registry.nextServer + 1;
  } while (registry.servers.count(registry.nextServer) != 0);
  raw->handle = registry.nextServer;
  registry.servers.emplace(raw->handle, std::move(server));
  handle = raw->handle;
  evlog_write(EVLOG_INFO, kLogModule, "HTTP server %d listening on %s:%u", handle, address.c_str(), raw->port);
  return 0;
}

int32_t CHttpServer::StopServer(int32_t handle) {
  std::unique_ptr<Server> server;
  {
    Registry& registry = GetRegistry();
    std::lock_guard<std::mutex> lock(registry.serverMutex);
    auto found = registry.servers.find(handle);
    if (found == registry.servers.end()) return kHttpErrUnknownHandle;
    server = std::move(found->second);
    registry.servers.erase(found);
  }
  StopServerNow(std::move(server));
  return 0;
}

int32_t CHttpServer::HttpServerSyncSend(int32_t link, const HttpResponse& response, size_t length, const char* bytes) {
  if (length != 0 && bytes == nullptr) return kHttpErrInvalidArg;
  Registry& table = GetRegistry();
  std::lock_guard<std::mutex> lock(table.linkMutex);
  auto found = table.waiting.find(link);
  if (found == table.waiting.end()) return kHttpErrLinkGone;
  Request* request = found->second;
  request->response = response;
  request->answer.assign(bytes == nullptr ? "" : bytes, length);
  request->state = Request::State::Answered;
  table.waiting.erase(found);
  MHD_resume_connection(request->connection);
  return 0;
}

uint16_t CHttpServer::GetServerPort(int32_t handle) {
  Registry& registry = GetRegistry();
  std::lock_guard<std::mutex> lock(registry.serverMutex);
  auto found = registry.servers.find(handle);
  return found == registry.servers.end() ? 0 : found->second->port;
}

}  // namespace Tarn::Net
