#include "ReplayRtsp.h"

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <map>
#include <mutex>
#include <thread>

#include "DigestAuth.h"
#include "HttpMessage.h"
#include "MediaLoop.h"
#include "evlog.h"

namespace camsim {

namespace {

using asio::ip::tcp;
constexpr const char* kLogModule = "camsim-replay";
constexpr size_t kMaxMessageBytes = 64 * 1024;

std::string HeaderOf(const std::string& message, const std::string& lowerName) {
  size_t at = 0;
  while ((at = message.find('\n', at)) != std::string::npos) {
    ++at;
    const size_t colon = message.find(':', at);
    const size_t end = message.find('\n', at);
    if (colon == std::string::npos || colon > end) continue;
    if (ToLower(message.substr(at, colon - at)) != lowerName) continue;
    std::string value = message.substr(colon + 1, end == std::string::npos ? std::string::npos : end - colon - 1);
    value.erase(0, value.find_first_not_of(' '));
    while (!value.empty() && (value.back() == '\r' || value.back() == ' ')) value.pop_back();
    return value;
  }
  return {};
}

// "rtsp://host:554/axis-media/media.amp?x=1" -> "/axis-media/media.amp?x=1"
std::string PathAndQuery(const std::string& url) {
  const size_t scheme = url.find("://");
  if (scheme == std::string::npos) return url;
  const size_t path = url.find('/', scheme + 3);
  return path == std::string::npos ? "/" : url.substr(path);
}

std::string QueryNames(const std::string& url) {
  const size_t question = url.find('?');
  std::string names = url.substr(0, question);
  if (question == std::string::npos) return names;
  for (const auto& [name, value] : ParseQuery(url.substr(question + 1))) names += "&" + name;
  return names;
}

// The captured answer with this request's CSeq.
std::string WithCSeq(const std::string& answer, const std::string& cseq) {
  const size_t at = ToLower(answer).find("\ncseq:");
  if (at == std::string::npos) return answer;
  const size_t end = answer.find("\r\n", at + 1);
  return answer.substr(0, at + 1) + "CSeq: " + cseq + answer.substr(end);
}

std::string Simple(int status, const char* reason, const std::string& cseq, const std::string& extra = "") {
  return "RTSP/1.0 " + std::to_string(status) + " " + reason + "\r\nCSeq: " + cseq + "\r\n" + extra + "\r\n";
}

}  // namespace

const ReplaySession* FindReplaySession(const std::vector<ReplaySession>& sessions, const std::string& url) {
  for (const ReplaySession& session : sessions) {
    if (session.url == url) return &session;
  }
  for (const ReplaySession& session : sessions) {
    if (QueryNames(session.url) == QueryNames(url)) return &session;
  }
  return nullptr;
}

struct ReplayRtspServer::Impl {
  Impl(const std::vector<ReplaySession>& sessionsIn, std::string realm, std::string userIn, std::string passwordIn)
      : sessions(sessionsIn), auth(std::move(realm)), user(std::move(userIn)), password(std::move(passwordIn)) {}

  const std::vector<ReplaySession>& sessions;
  DigestAuthenticator auth;
  std::string user, password;
  asio::io_context io;
  std::unique_ptr<tcp::acceptor> acceptor;
  std::atomic<bool> stopping{false};
  std::mutex mutex;
  std::list<std::shared_ptr<tcp::socket>> sockets;
  std::list<std::thread> threads;

  // One client connection.
  struct Connection {
    std::shared_ptr<tcp::socket> socket;
    std::mutex writeMutex;
    const ReplaySession* session = nullptr;
    std::map<std::string, size_t> next;  // method -> answers taken
    std::thread sender;
    std::mutex stateMutex;
    std::condition_variable wake;  // the sender waits here for a frame's time, or to play again
    bool playing = false, ended = false;
  };

  bool Write(Connection& connection, const std::string& bytes) {
    std::lock_guard<std::mutex> lock(connection.writeMutex);
    asio::error_code ec;
    asio::write(*connection.socket, asio::buffer(bytes), ec);
    return !ec;
  }

  // The session's answers to `method` in order, 401 legs left out.
  static std::vector<const std::string*> Answers(const ReplaySession& session, const std::string& method) {
    std::vector<const std::string*> answers;
    for (size_t i = 0; i < session.messages.size(); ++i) {
      if (!session.messages[i].first || session.messages[i].second.rfind(method + " ", 0) != 0) continue;
      for (size_t k = i + 1; k < session.messages.size(); ++k) {
        if (session.messages[k].first) continue;
        if (session.messages[k].second.rfind("RTSP/1.0 401", 0) != 0) answers.push_back(&session.messages[k].second);
        break;
      }
    }
    return answers;
  }

  void Send(Connection* connection) {
    // Live video goes on as long as it is watched; a recording ends where its capture does.
    const ReplaySession& session = *connection->session;
    const bool live = session.range.rfind("clock=", 0) != 0 && session.url.find("recordingid=") == std::string::npos;
    MediaLoop media(session.media, live);
    evlog_write(EVLOG_INFO, kLogModule, "replay: %s %s %zu frame(s), %.1f s (%s)", live ? "looping" : "playing once",
                session.url.c_str(), media.Frames(), media.Length(), session.source.c_str());
    auto start = std::chrono::steady_clock::now();
    std::string frame;
    double due = 0;
    while (!stopping) {
      {
        std::unique_lock<std::mutex> lock(connection->stateMutex);
        const auto pausedAt = std::chrono::steady_clock::now();
        connection->wake.wait(lock, [&] { return stopping || connection->ended || connection->playing; });
        start += std::chrono::steady_clock::now() - pausedAt;  // a pause holds the stream's clock
        if (stopping || connection->ended) return;
      }
      if (!media.Next(&frame, &due)) return;
      const auto at =
          start + std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(due));
      std::unique_lock<std::mutex> lock(connection->stateMutex);
      connection->wake.wait_until(lock, at, [&] { return stopping || connection->ended; });
      if (stopping || connection->ended) return;
      lock.unlock();
      if (!Write(*connection, frame)) return;
    }
  }

  void Answer(Connection& connection, const std::string& request) {
    const std::string line = request.substr(0, request.find("\r\n"));
    const size_t first = line.find(' '), second = line.find(' ', first + 1);
    const std::string method = line.substr(0, first);
    const std::string url = first == std::string::npos ? "" : line.substr(first + 1, second - first - 1);
    const std::string cseq = HeaderOf(request, "cseq");
    const DigestVerdict verdict = auth.VerifyKnown(method, UrlDecode(url.substr(0, url.find('?')), false),
                                                   HeaderOf(request, "authorization"), user, password);
    if (verdict != DigestVerdict::Accepted) {
      Write(connection, Simple(401, "Unauthorized", cseq,
                               "WWW-Authenticate: " + auth.Challenge(verdict == DigestVerdict::StaleNonce) + "\r\n"));
      return;
    }
    if (method == "DESCRIBE" || connection.session == nullptr) {
      connection.session = FindReplaySession(sessions, PathAndQuery(url));
      if (connection.session == nullptr) {
        evlog_write(EVLOG_WARN, kLogModule, "replay: RTSP %s was never captured; answered 404",
                    PathAndQuery(url).c_str());
        Write(connection, Simple(404, "Not Found", cseq));
        return;
      }
    }
    const auto answers = Answers(*connection.session, method);
    size_t& taken = connection.next[method];
    std::string answer =
        answers.empty() ? Simple(200, "OK", cseq) : WithCSeq(*answers[std::min(taken, answers.size() - 1)], cseq);
    ++taken;
    Write(connection, answer);
    std::lock_guard<std::mutex> lock(connection.stateMutex);
    if (method == "PLAY") {
      connection.playing = true;
      if (!connection.sender.joinable()) connection.sender = std::thread([this, &connection] { Send(&connection); });
    } else if (method == "PAUSE") {
      connection.playing = false;
    } else if (method == "TEARDOWN") {
      connection.ended = true;
    }
    connection.wake.notify_all();
  }

  void Serve(std::shared_ptr<tcp::socket> socket) {
    Connection connection;
    connection.socket = socket;
    std::string buffer;
    char chunk[8192];
    while (!stopping && !connection.ended) {
      asio::error_code ec;
      const size_t got = socket->read_some(asio::buffer(chunk), ec);
      if (ec) break;
      buffer.append(chunk, got);
      while (!buffer.empty()) {
        if (buffer[0] == '$') {  // the client's RTCP
          if (buffer.size() < 4) break;
          const size_t length = 4 + ((static_cast<uint8_t>(buffer[2]) << 8) | static_cast<uint8_t>(buffer[3]));
          if (buffer.size() < length) break;
          buffer.erase(0, length);
          continue;
        }
        const size_t headEnd = buffer.find("\r\n\r\n");
        if (headEnd == std::string::npos) {
          if (buffer.size() > kMaxMessageBytes) buffer.clear();
          break;
        }
        const size_t length =
            headEnd + 4 + std::strtoul(HeaderOf(buffer.substr(0, headEnd + 4), "content-length").c_str(), nullptr, 10);
        if (buffer.size() < length) break;
        Answer(connection, buffer.substr(0, length));
        buffer.erase(0, length);
      }
    }
    {
      std::lock_guard<std::mutex> lock(connection.stateMutex);
      connection.ended = true;
    }
    connection.wake.notify_all();
    if (connection.sender.joinable()) connection.sender.join();
    std::lock_guard<std::mutex> lock(mutex);
    asio::error_code ec;
    socket->shutdown(tcp::socket::shutdown_both, ec);
    socket->close(ec);
    sockets.remove(socket);
  }

  void Accept() {
    while (!stopping) {
      auto socket = std::make_shared<tcp::socket>(io);
      asio::error_code ec;
      acceptor->accept(*socket, ec);
      if (stopping) break;
      if (ec) continue;
      socket->set_option(tcp::no_delay(true), ec);
      std::lock_guard<std::mutex> lock(mutex);
      sockets.push_back(socket);
      threads.emplace_back([this, socket] { Serve(socket); });
    }
  }
};

ReplayRtspServer::ReplayRtspServer(const std::vector<ReplaySession>& sessions, std::string realm, std::string user,
                                   std::string password)
    : m_impl(std::make_unique<Impl>(sessions, std::move(realm), std::move(user), std::move(password))) {}

ReplayRtspServer::~ReplayRtspServer() { Stop(); }

bool ReplayRtspServer::Start(const std::string& address, uint16_t port, std::string* error) {
  Impl& impl = *m_impl;
  asio::error_code ec;
  const tcp::endpoint endpoint(asio::ip::make_address(address, ec), port);
  impl.acceptor = std::make_unique<tcp::acceptor>(impl.io);
  if (!ec) impl.acceptor->open(endpoint.protocol(), ec);
  if (!ec) impl.acceptor->set_option(tcp::acceptor::reuse_address(true), ec);
  if (!ec) impl.acceptor->bind(endpoint, ec);
  if (!ec) impl.acceptor->listen(asio::socket_base::max_listen_connections, ec);
  if (ec) {
    *error = "cannot listen on " + address + ":" + std::to_string(port) + ": " + ec.message();
    impl.acceptor.reset();
    return false;
  }
  std::lock_guard<std::mutex> lock(impl.mutex);
  impl.threads.emplace_back([&impl] { impl.Accept(); });
  evlog_write(EVLOG_INFO, kLogModule, "replayed RTSP on %s:%u, %zu session(s)", address.c_str(), Port(),
              impl.sessions.size());
  return true;
}

void ReplayRtspServer::Stop() {
  Impl& impl = *m_impl;
  if (!impl.acceptor || impl.stopping.exchange(true)) return;
  {
    // A blocking accept returns for a connection.
    asio::error_code ec;
    tcp::socket knock(impl.io);
    knock.connect(impl.acceptor->local_endpoint(ec), ec);
  }
  while (true) {
    std::list<std::thread> threads;
    {
      std::lock_guard<std::mutex> lock(impl.mutex);
      for (auto& socket : impl.sockets) {
        asio::error_code ec;
        socket->shutdown(tcp::socket::shutdown_both, ec);
      }
      threads.swap(impl.threads);
    }
    if (threads.empty()) break;
    for (std::thread& thread : threads) thread.join();
  }
  asio::error_code ec;
  impl.acceptor->close(ec);
}

uint16_t ReplayRtspServer::Port() const {
  asio::error_code ec;
  return m_impl->acceptor ? m_impl->acceptor->local_endpoint(ec).port() : 0;
}

}  // namespace camsim
