#include "CaptureRelay.h"

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <list>
#include <mutex>
#include <thread>

#include "CaptureRtsp.h"

#ifdef _WIN32
#include <winsock2.h>
#else
#include <sys/socket.h>
#include <sys/time.h>
#endif

using asio::ip::tcp;

namespace {

constexpr int kCameraTimeoutSeconds = 30;  // longer than the plug-in waits for any answer
constexpr uint16_t kCameraRtspPort = 554;

// A camera that stops answering must not hold a relay thread for ever.
void SetReceiveTimeout(tcp::socket& socket, int seconds) {
#ifdef _WIN32
  const DWORD ms = static_cast<DWORD>(seconds) * 1000;
  setsockopt(socket.native_handle(), SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&ms), sizeof ms);
#else
  timeval timeout{seconds, 0};
  setsockopt(socket.native_handle(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
#endif
}

long MillisecondsSince(std::chrono::steady_clock::time_point start) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count());
}

// Reads into `reader` until it holds a whole message; false when the peer
// closed or failed first (the reader then says why).
bool ReadMessage(tcp::socket& socket, HttpMessageReader& reader, const std::function<void()>& onHead = {}) {
  char buffer[16384];
  bool headSeen = reader.HeadDone();
  while (!reader.Complete() && !reader.Failed()) {
    asio::error_code ec;
    const size_t got = socket.read_some(asio::buffer(buffer), ec);
    if (ec) {
      reader.FeedEnd();
      return reader.Complete();
    }
    reader.Feed(buffer, got);
    if (!headSeen && reader.HeadDone()) {
      headSeen = true;
      if (onHead) onHead();
    }
  }
  return reader.Complete();
}

}  // namespace

struct CaptureRelay::Impl {
  Impl(CaptureWriter& writerIn, std::string host, uint16_t port)
      : writer(writerIn), cameraHost(std::move(host)), cameraPort(port) {}

  CaptureWriter& writer;
  std::string cameraHost;
  uint16_t cameraPort;
  std::string relayAddress;  // the relay's own
  std::mutex alarmMutex;
  std::string alarmReceiver;  // where the plug-in takes alarms in this run
  asio::io_context io;
  std::unique_ptr<tcp::acceptor> http;
  std::unique_ptr<tcp::acceptor> rtsp;
  std::atomic<bool> stopping{false};
  std::mutex mutex;  // guards the lists below
  std::list<std::shared_ptr<tcp::socket>> sockets;
  std::list<std::thread> threads;

  std::shared_ptr<tcp::socket> NewSocket() {
    auto socket = std::make_shared<tcp::socket>(io);
    std::lock_guard<std::mutex> lock(mutex);
    sockets.push_back(socket);
    return socket;
  }

  bool Connect(tcp::socket& socket, uint16_t port, std::string* error) {
    asio::error_code ec;
    tcp::resolver resolver(io);
    auto endpoints = resolver.resolve(cameraHost, std::to_string(port), ec);
    if (!ec) asio::connect(socket, endpoints, ec);
    if (ec) {
      *error = "cannot connect to " + cameraHost + ":" + std::to_string(port) + ": " + ec.message();
      return false;
    }
    SetReceiveTimeout(socket, kCameraTimeoutSeconds);
    socket.set_option(tcp::no_delay(true), ec);
    return true;
  }

  void Accept(tcp::acceptor& acceptor, void (Impl::*serve)(std::shared_ptr<tcp::socket>)) {
    while (!stopping) {
      auto client = NewSocket();
      asio::error_code ec;
      acceptor.accept(*client, ec);
      if (stopping) break;
      if (ec) continue;
      client->set_option(tcp::no_delay(true), ec);
      std::lock_guard<std::mutex> lock(mutex);
      threads.emplace_back([this, serve, client] { (this->*serve)(client); });
    }
  }

  // One client connection: its requests in turn, each over one connection to the camera.
  void ServeHttp(std::shared_ptr<tcp::socket> client) {
    std::shared_ptr<tcp::socket> camera;
    std::string pending;  // bytes of the client's next request
    while (!stopping) {
      HttpMessageReader request(HttpMessageReader::Kind::Request);
      if (!pending.empty()) request.Feed(pending.data(), pending.size());
      bool continued = false;
      const auto answerContinue = [&] {
        // The relay takes the whole body before it asks the camera, so it says "go on" itself.
        if (request.Header("Expect").find("100") != std::string::npos && !request.Complete()) {
          asio::error_code ec;
          asio::write(*client, asio::buffer(std::string("HTTP/1.1 100 Continue\r\n\r\n")), ec);
          continued = true;
        }
      };
      if (request.HeadDone()) answerContinue();
      if (!ReadMessage(*client, request, answerContinue)) {
        if (request.Failed() && !request.StartLine().empty()) {
          asio::error_code ec;
          asio::write(*client, asio::buffer(std::string("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n")), ec);
        }
        break;
      }
      (void)continued;
      pending = request.Rest();
      if (request.StartLine().find(std::string(" ") + kRelayedAlarmPath) != std::string::npos) {
        if (!PassAlarmOn(*client, request)) break;
        continue;
      }
      if (!Exchange(*client, camera, request)) break;
    }
    Release(camera);
    Release(client);
  }

  // Passes one request on and its answer back, and records it; false when the
  // client connection must end.
  bool Exchange(tcp::socket& client, std::shared_ptr<tcp::socket>& camera, const HttpMessageReader& request) {
    CapturedExchange exchange;
    const std::string& line = request.StartLine();  // "GET /path?query HTTP/1.1"
    const size_t first = line.find(' '), second = line.rfind(' ');
    exchange.method = line.substr(0, first);
    std::string target = line.substr(first + 1, second - first - 1);
    if (target.rfind("http://", 0) == 0) target = target.substr(std::min(target.find('/', 7), target.size()));
    const size_t question = target.find('?');
    exchange.path = target.substr(0, question);
    exchange.query = question == std::string::npos ? "" : target.substr(question + 1);
    exchange.requestHeaders = KeptRequestHeaders(request.Headers());
    exchange.requestBody = request.Body();
    const auto started = std::chrono::steady_clock::now();

    std::string forwarded = ForwardedRequest(request);
    if (exchange.method == "POST" && exchange.path == kAlarmControlPath) {
      std::string receiver = request.Body();
      receiver.erase(receiver.find_last_not_of(" \t\r\n") + 1);
      {
        std::lock_guard<std::mutex> lock(alarmMutex);
        alarmReceiver = receiver;
      }
      const std::string relayed =
          "http://" + relayAddress + ":" + std::to_string(http->local_endpoint().port()) + kRelayedAlarmPath + "\r\n";
      forwarded = ForwardedRequest(request, &relayed);
    }
    HttpMessageReader answer(HttpMessageReader::Kind::Response);
    std::string error;
    // A kept-alive connection the camera has closed meanwhile is replaced before
    // the request goes out. Once sent, a request is never sent again: a second
    // copy would not be what the client sent (a Digest count used twice), and
    // a camera that drops a request must be seen to drop it.
    if (camera && Closed(*camera)) Release(camera);
    if (!camera) {
      camera = NewSocket();
      if (!Connect(*camera, cameraPort, &error)) Release(camera);
    }
    if (camera) {
      asio::error_code ec;
      asio::write(*camera, asio::buffer(forwarded), ec);
      if (exchange.method == "HEAD") answer.SetNoBody();
      bool read = !ec && ReadMessage(*camera, answer);
      while (read && answer.Status() >= 100 && answer.Status() < 200) {
        const std::string rest = answer.Rest();
        answer = HttpMessageReader(HttpMessageReader::Kind::Response);
        answer.Feed(rest.data(), rest.size());
        read = ReadMessage(*camera, answer);
      }
      if (!read) {
        error = ec ? "sending the request: " + ec.message() : answer.Error();
        Release(camera);
      }
    }
    exchange.milliseconds = MillisecondsSince(started);
    if (!answer.Complete()) {
      // The client sees what the camera did: no answer.
      exchange.failure = error.empty() ? "no answer" : error;
      writer.Record(std::move(exchange));
      return false;
    }
    exchange.status = answer.Status();
    exchange.answerHeaders = KeptAnswerHeaders(answer.Headers());
    exchange.answerBody = answer.Body();
    asio::error_code ec;
    asio::write(client, asio::buffer(answer.Raw()), ec);
    if (IsAuthenticationLeg(request, exchange.status)) {
      writer.RecordChallenge(ChallengeKind(answer.Header("WWW-Authenticate")));
    } else {
      writer.Record(std::move(exchange));
    }
    const bool closes = answer.Header("Connection").find("close") != std::string::npos ||
                        (answer.Header("Content-Length").empty() && answer.Header("Transfer-Encoding").empty());
    if (closes) Release(camera);
    return !ec && !closes;
  }

  // An alarm the camera posted to the relay goes on to the plug-in's
  // receiver from the relay's address; the camera hears the receiver's status.
  bool PassAlarmOn(tcp::socket& client, const HttpMessageReader& alarm) {
    std::string receiver;
    {
      std::lock_guard<std::mutex> lock(alarmMutex);
      receiver = alarmReceiver;
    }
    int status = 502;
    // http://host:port/path
    const size_t hostStart = receiver.find("://") == std::string::npos ? 0 : receiver.find("://") + 3;
    const size_t pathStart = std::min(receiver.find('/', hostStart), receiver.size());
    const std::string hostPort = receiver.substr(hostStart, pathStart - hostStart);
    const size_t colon = hostPort.rfind(':');
    asio::error_code ec;
    tcp::socket out(io);
    out.open(tcp::v4(), ec);
    if (!ec) out.bind(tcp::endpoint(asio::ip::make_address(relayAddress, ec), 0), ec);
    tcp::resolver resolver(io);
    auto endpoints =
        resolver.resolve(hostPort.substr(0, colon), colon == std::string::npos ? "80" : hostPort.substr(colon + 1), ec);
    // One endpoint, connected directly: asio::connect would reopen the socket and lose its bound address.
    if (!ec && !endpoints.empty()) out.connect(*endpoints.begin(), ec);
    if (!ec && !receiver.empty()) {
      SetReceiveTimeout(out, 10);
      const std::string path = pathStart < receiver.size() ? receiver.substr(pathStart) : "/";
      std::string post = "POST " + path + " HTTP/1.1\r\nHost: " + hostPort + "\r\nConnection: close\r\n";
      if (!alarm.Header("Content-Type").empty()) post += "Content-Type: " + alarm.Header("Content-Type") + "\r\n";
      post += "Content-Length: " + std::to_string(alarm.Body().size()) + "\r\n\r\n" + alarm.Body();
      asio::write(out, asio::buffer(post), ec);
      HttpMessageReader answer(HttpMessageReader::Kind::Response);
      if (!ec && ReadMessage(out, answer)) status = answer.Status();
    }
    const std::string reply = "HTTP/1.1 " + std::to_string(status) + " Relayed\r\nContent-Length: 0\r\n\r\n";
    asio::write(client, asio::buffer(reply), ec);
    return !ec;
  }

  // True when the peer has closed the connection (nothing waits to be read but its end).
  static bool Closed(tcp::socket& socket) {
    asio::error_code ec, mode;
    char byte;
    socket.non_blocking(true, mode);
    const size_t got = socket.receive(asio::buffer(&byte, 1), tcp::socket::message_peek, ec);
    socket.non_blocking(false, mode);
    return got == 0 && ec != asio::error::would_block && ec != asio::error::try_again;
  }

  // Closes a socket this relay opened and forgets it.
  void Release(std::shared_ptr<tcp::socket>& socket) {
    if (!socket) return;
    std::lock_guard<std::mutex> lock(mutex);
    asio::error_code ec;
    socket->close(ec);
    sockets.remove(socket);
    socket.reset();
  }

  // One RTSP connection: bytes both ways as they come, the recorder watching.
  void ServeRtsp(std::shared_ptr<tcp::socket> client) {
    auto camera = NewSocket();
    auto recorder = std::make_shared<RtspSessionRecorder>();
    std::string error;
    if (!Connect(*camera, kCameraRtspPort, &error)) {
      recorder->Fail(error);
      writer.RecordRtsp(recorder->Take());
      Release(camera);
      Release(client);
      return;
    }
    // A quiet live session is normal between keep-alives; no timeout on this side.
    SetReceiveTimeout(*camera, 0);
    std::thread upstream([this, client, camera, recorder] {
      Pump(*client, *camera, [&](const char* data, size_t size) { recorder->FromClient(data, size); });
    });
    Pump(*camera, *client, [&](const char* data, size_t size) { recorder->FromCamera(data, size); });
    {
      std::lock_guard<std::mutex> lock(mutex);
      asio::error_code ec;
      client->shutdown(tcp::socket::shutdown_both, ec);
      camera->shutdown(tcp::socket::shutdown_both, ec);
    }
    upstream.join();
    Release(camera);
    Release(client);
    writer.RecordRtsp(recorder->Take());
  }

  // Copies from one socket to the other until either ends; `watch` sees each read.
  void Pump(tcp::socket& from, tcp::socket& to, const std::function<void(const char*, size_t)>& watch) {
    char buffer[16384];
    while (!stopping) {
      asio::error_code ec;
      const size_t got = from.read_some(asio::buffer(buffer), ec);
      if (ec) break;
      watch(buffer, got);
      asio::write(to, asio::buffer(buffer, got), ec);
      if (ec) break;
    }
    asio::error_code ec;
    to.shutdown(tcp::socket::shutdown_send, ec);
  }

  bool Listen(std::unique_ptr<tcp::acceptor>& acceptor, const std::string& address, uint16_t port, std::string* error) {
    asio::error_code ec;
    const tcp::endpoint endpoint(asio::ip::make_address(address, ec), port);
    if (ec) {
      *error = "not an address: " + address;
      return false;
    }
    acceptor = std::make_unique<tcp::acceptor>(io);
    acceptor->open(endpoint.protocol(), ec);
    if (!ec) acceptor->set_option(tcp::acceptor::reuse_address(true), ec);
    if (!ec) acceptor->bind(endpoint, ec);
    if (!ec) acceptor->listen(asio::socket_base::max_listen_connections, ec);
    if (ec) {
      *error = "cannot listen on " + address + ":" + std::to_string(port) + ": " + ec.message();
      acceptor.reset();
      return false;
    }
    return true;
  }

  void Wake(tcp::acceptor& acceptor) {
    // A blocking accept returns for a connection; closing under it is not portable.
    asio::error_code ec;
    tcp::socket knock(io);
    knock.connect(acceptor.local_endpoint(ec), ec);
  }
};

CaptureRelay::CaptureRelay(CaptureWriter& writer, std::string cameraHost, uint16_t cameraHttpPort)
    : m_impl(std::make_unique<Impl>(writer, std::move(cameraHost), cameraHttpPort)) {}

CaptureRelay::~CaptureRelay() { Stop(); }

bool CaptureRelay::Start(const std::string& address, uint16_t rtspPort, std::string* error) {
  Impl& impl = *m_impl;
  impl.relayAddress = address;
  if (!impl.Listen(impl.http, address, 0, error)) return false;
  if (rtspPort != 0 && !impl.Listen(impl.rtsp, address, rtspPort, error)) {
    impl.http.reset();
    return false;
  }
  std::lock_guard<std::mutex> lock(impl.mutex);
  impl.threads.emplace_back([&impl] { impl.Accept(*impl.http, &Impl::ServeHttp); });
  if (impl.rtsp) impl.threads.emplace_back([&impl] { impl.Accept(*impl.rtsp, &Impl::ServeRtsp); });
  return true;
}

void CaptureRelay::Stop() {
  Impl& impl = *m_impl;
  if (!impl.http || impl.stopping.exchange(true)) return;
  impl.Wake(*impl.http);
  if (impl.rtsp) impl.Wake(*impl.rtsp);
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
  impl.http->close(ec);
  if (impl.rtsp) impl.rtsp->close(ec);
}

uint16_t CaptureRelay::HttpPort() const { return m_impl->http ? m_impl->http->local_endpoint().port() : 0; }
