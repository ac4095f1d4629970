#include "FaultRelay.h"

#include <algorithm>
#include <array>
#include <asio.hpp>
#include <chrono>
#include <deque>
#include <optional>
#include <random>
#include <string_view>
#include <thread>
#include <vector>

#include "RtspFraming.h"
#include "evlog.h"

namespace camsim {
namespace {

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using Kind = Fault::Kind;

constexpr const char* kLogModule = "camsim-rtsp";
constexpr size_t kReadSize = 64 * 1024;
// Bytes waiting for a client before whole frames are dropped: a few seconds of video.
constexpr size_t kBacklog = 4 << 20;
constexpr size_t kMinSlowBacklog = 16 * 1024;
constexpr auto kPaceTick = std::chrono::milliseconds(20);
constexpr auto kGarbageEvery = std::chrono::seconds(1);
constexpr auto kAcceptRetry = std::chrono::milliseconds(100);
constexpr size_t kDefaultGarbage = 512;
constexpr size_t kMaxRequest = 64 * 1024;

std::string StatusAnswer(int status, int cseq) {
  const char* reason = status == 503 ? "Service Unavailable" : status == 500 ? "Internal Server Error" : "Error";
  std::string text = "RTSP/1.0 " + std::to_string(status) + " " + reason + "\r\n";
  if (cseq >= 0) text += "CSeq: " + std::to_string(cseq) + "\r\n";
  return text + "Content-Length: 0\r\n\r\n";
}

// The fault's bytes, or random ones whose first byte (high bit set) starts
// neither a frame nor a message.
std::string GarbageBytes(const Fault& fault, std::mt19937& random) {
  if (!fault.body.empty()) return fault.body;
  std::string bytes(fault.size > 0 ? fault.size : kDefaultGarbage, '\0');
  for (char& c : bytes) c = static_cast<char>(random() & 0xff);
  bytes[0] = static_cast<char>(static_cast<unsigned char>(bytes[0]) | 0x80);
  return bytes;
}

// One client connection and its connection to the server. Lives on the
// relay's I/O thread only; the handlers in flight keep it alive.
class Link : public std::enable_shared_from_this<Link> {
 public:
  Link(tcp::socket client, FaultSet& faults, std::mt19937& random)
      : m_client(std::move(client)),
        m_server(m_client.get_executor()),
        m_paceTimer(m_client.get_executor()),
        m_delayTimer(m_client.get_executor()),
        m_faults(faults),
        m_random(random) {}

  void Start(const tcp::endpoint& upstream) {
    if (Faulty() && m_faults.Take(FaultSide::Rtsp, m_path, {Kind::Reset})) return Reset();
    m_server.async_connect(upstream, [self = shared_from_this()](const asio::error_code& error) {
      if (self->m_closed) return;
      if (error) return self->Close();
      asio::error_code ignored;
      self->m_client.set_option(tcp::no_delay(true), ignored);
      self->m_server.set_option(tcp::no_delay(true), ignored);
      self->ReadServer();
      self->ReadClient();
    });
  }

  // The faults changed: reset now, close what a thawed camera had lost, re-pace.
  void Poke() {
    if (m_closed) return;
    if (Faulty() && m_faults.Take(FaultSide::Rtsp, m_path, {Kind::Reset})) return Reset();
    if (m_serverGone && !Frozen()) m_closeAfterFlush = true;
    FlushClient();
  }

  void Close() {
    if (m_closed) return;
    m_closed = true;
    asio::error_code ignored;
    m_client.shutdown(tcp::socket::shutdown_both, ignored);
    m_client.close(ignored);
    m_server.close(ignored);
    m_paceTimer.cancel();
    m_delayTimer.cancel();
  }

 private:
  struct Held {
    std::string request;
    std::chrono::milliseconds delay;
  };

  bool Faulty() const { return m_faults.Any(FaultSide::Rtsp); }
  bool Frozen() const { return Faulty() && m_faults.Condition(FaultSide::Rtsp, Kind::Freeze, m_path); }

  void Reset() {
    evlog_write(EVLOG_INFO, kLogModule, "RTSP connection reset (fault)");
    asio::error_code ignored;
    m_client.set_option(asio::socket_base::linger(true, 0), ignored);
    m_client.close(ignored);  // with a zero linger: RST
    Close();
  }

  // Server to client.
  void ReadServer() {
    m_server.async_read_some(asio::buffer(m_fromServer),
                             [self = shared_from_this()](const asio::error_code& error, size_t size) {
                               if (self->m_closed) return;
                               if (error) return self->ServerGone();
                               self->FromServer(size);
                             });
  }

  void ServerGone() {
    m_serverGone = true;
    if (Frozen()) return;  // a frozen camera shows nothing, not even its end
    m_closeAfterFlush = true;
    FlushClient();
  }

  void FromServer(size_t size) {
    const char* data = m_fromServer.data();
    while (size > 0) {
      const StreamPiece piece = m_serverFramer.Next(data, size);
      if (piece.starts) StartServerUnit(piece);
      if (m_closed) return;
      if (!m_dropUnit) {
        const size_t take = std::min(piece.length, m_cutLeft);
        m_toClient.append(data, take);
        if (m_cutLeft != SIZE_MAX && (m_cutLeft -= take) == 0) {
          m_closeAfterFlush = true;  // the part of the frame goes out, then the connection ends
          FlushClient();
          return;
        }
      }
      m_midUnit = !m_dropUnit && !piece.ends;
      if (!m_midUnit && !m_injected.empty()) {
        m_toClient += m_injected;
        m_injected.clear();
      }
      data += piece.length;
      size -= piece.length;
    }
    FlushClient();
    ReadServer();
  }

  size_t Backlog() const { return m_bytesPerSecond > 0 ? std::max(kMinSlowBacklog, 2 * m_bytesPerSecond) : kBacklog; }

  // Decides what becomes of a unit from the server that starts now.
  void StartServerUnit(const StreamPiece& piece) {
    m_dropUnit = piece.frame && m_toClient.size() > Backlog();
    if (m_dropUnit || !Faulty()) return;
    if (Frozen()) {
      m_dropUnit = true;
      return;
    }
    if (!piece.frame) return;
    if (piece.unitLength > 5 && m_faults.Take(FaultSide::Rtsp, m_path, {Kind::Cut})) {
      m_cutLeft = 4 + (piece.unitLength - 4) / 2;
      evlog_write(EVLOG_INFO, kLogModule, "RTSP stream cut after %zu of a frame's %zu bytes (fault)", m_cutLeft,
                  piece.unitLength);
      return;
    }
    const auto now = Clock::now();
    if (now - m_lastGarbage >= kGarbageEvery) {
      if (auto garbage = m_faults.Take(FaultSide::Rtsp, m_path, {Kind::Garbage})) {
        m_toClient += GarbageBytes(*garbage, m_random);
        m_lastGarbage = now;
      }
    }
  }

  void FlushClient() {
    if (m_closed || m_writingClient || m_pacing) return;
    if (m_toClient.empty()) {
      if (m_closeAfterFlush) Close();
      return;
    }
    std::optional<Fault> slow;
    if (Faulty()) slow = m_faults.Condition(FaultSide::Rtsp, Kind::Slow, m_path);
    m_bytesPerSecond = slow ? slow->bytesPerSecond : 0;
    size_t count = m_toClient.size();
    const auto now = Clock::now();
    if (m_bytesPerSecond > 0) {
      const double elapsed = std::chrono::duration<double>(now - m_tokensAt).count();
      m_tokens = std::min(m_bytesPerSecond / 10.0, m_tokens + static_cast<double>(m_bytesPerSecond) * elapsed);
      m_tokensAt = now;
      if (m_tokens < 1) {
        m_pacing = true;
        m_paceTimer.expires_after(kPaceTick);
        m_paceTimer.async_wait([self = shared_from_this()](const asio::error_code& error) {
          self->m_pacing = false;
          if (!error) self->FlushClient();
        });
        return;
      }
      count = std::min(count, static_cast<size_t>(m_tokens));
      m_tokens -= static_cast<double>(count);
    } else {
      m_tokens = 0;
      m_tokensAt = now;
    }
    if (count == m_toClient.size()) {
      m_clientWriting.swap(m_toClient);
      m_toClient.clear();
    } else {
      m_clientWriting.assign(m_toClient, 0, count);
      m_toClient.erase(0, count);
    }
    m_writingClient = true;
    asio::async_write(m_client, asio::buffer(m_clientWriting),
                      [self = shared_from_this()](const asio::error_code& error, size_t) {
                        self->m_writingClient = false;
                        if (self->m_closed) return;
                        if (error) return self->Close();
                        self->FlushClient();
                      });
  }

  // Our own answer (Status) goes between two of the server's units.
  void Inject(const std::string& text) {
    if (m_midUnit) {
      m_injected += text;
      return;
    }
    m_toClient += text;
    FlushClient();
  }

  // Client to server.
  void ReadClient() {
    m_client.async_read_some(asio::buffer(m_fromClient),
                             [self = shared_from_this()](const asio::error_code& error, size_t size) {
                               if (self->m_closed) return;
                               if (error) return self->Close();  // the client went away
                               self->FromClient(size);
                             });
  }

  void FromClient(size_t size) {
    const char* data = m_fromClient.data();
    while (size > 0) {
      const StreamPiece piece = m_clientFramer.Next(data, size);
      if (piece.frame) {
        if (piece.starts) m_dropClientFrame = Frozen();
        if (!m_dropClientFrame) m_toServer.append(data, piece.length);  // the client's RTCP
      } else {
        m_request.append(data, piece.length);
        if (piece.ends || m_request.size() >= kMaxRequest) {
          std::string request;
          request.swap(m_request);
          HandleRequest(std::move(request));
          if (m_closed) return;
        }
      }
      data += piece.length;
      size -= piece.length;
    }
    FlushServer();
    ReadClient();
  }

  void HandleRequest(std::string request) {
    if (std::string path = RequestPath(request); !path.empty()) m_path = std::move(path);
    if (Faulty()) {
      if (Frozen()) return;  // a frozen camera hears nothing
      if (auto fault = m_faults.Take(FaultSide::Rtsp, m_path, {Kind::Status, Kind::Delay})) {
        if (fault->kind == Kind::Status) return Inject(StatusAnswer(fault->status, RequestCSeq(request)));
        m_held.push_back(Held{std::move(request), fault->delay});
        if (m_held.size() == 1) HoldFront();
        return;
      }
    }
    if (!m_held.empty()) {
      m_held.push_back(Held{std::move(request), std::chrono::milliseconds(0)});  // in order, behind the held one
      return;
    }
    m_toServer += request;
  }

  void HoldFront() {
    m_delayTimer.expires_after(m_held.front().delay);
    m_delayTimer.async_wait([self = shared_from_this()](const asio::error_code& error) {
      if (error || self->m_closed) return;
      do {
        self->m_toServer += self->m_held.front().request;
        self->m_held.pop_front();
      } while (!self->m_held.empty() && self->m_held.front().delay.count() == 0);
      if (!self->m_held.empty()) self->HoldFront();
      self->FlushServer();
    });
  }

  void FlushServer() {
    if (m_closed || m_writingServer || m_toServer.empty()) return;
    m_serverWriting.swap(m_toServer);
    m_toServer.clear();
    m_writingServer = true;
    asio::async_write(m_server, asio::buffer(m_serverWriting),
                      [self = shared_from_this()](const asio::error_code& error, size_t) {
                        self->m_writingServer = false;
                        if (self->m_closed) return;
                        if (error) return self->ServerGone();
                        self->FlushServer();
                      });
  }

  tcp::socket m_client, m_server;
  asio::steady_timer m_paceTimer, m_delayTimer;
  FaultSet& m_faults;
  std::mt19937& m_random;
  std::array<char, kReadSize> m_fromServer;
  std::array<char, 8192> m_fromClient;
  StreamFramer m_serverFramer, m_clientFramer;
  std::string m_path;  // of the latest request; faults match it
  bool m_closed = false;

  // Server to client.
  std::string m_toClient, m_clientWriting, m_injected;
  bool m_writingClient = false, m_pacing = false;
  bool m_dropUnit = false;      // the server's unit in progress is not passed on
  bool m_midUnit = false;       // m_toClient ends inside a unit
  size_t m_cutLeft = SIZE_MAX;  // bytes of the frame being cut still to send
  bool m_closeAfterFlush = false;
  bool m_serverGone = false;
  size_t m_bytesPerSecond = 0;
  double m_tokens = 0;
  Clock::time_point m_tokensAt = Clock::now();
  Clock::time_point m_lastGarbage;

  // Client to server.
  std::string m_toServer, m_serverWriting, m_request;
  bool m_writingServer = false, m_dropClientFrame = false;
  std::deque<Held> m_held;  // requests held back by a Delay, in order
};

}  // namespace

struct FaultRelay::Impl {
  explicit Impl(std::shared_ptr<FaultSet> set) : faults(std::move(set)) {}

  void Accept() {
    acceptor.async_accept([this](const asio::error_code& error, tcp::socket socket) {
      if (!acceptor.is_open()) return;
      if (error) {
        // Out of descriptors, say: try again shortly rather than spin.
        evlog_write(EVLOG_WARN, kLogModule, "RTSP accept failed: %s", error.message().c_str());
        retry.expires_after(kAcceptRetry);
        retry.async_wait([this](const asio::error_code& cancelled) {
          if (!cancelled) Accept();
        });
        return;
      }
      links.erase(std::remove_if(links.begin(), links.end(), [](const auto& link) { return link.expired(); }),
                  links.end());
      auto link = std::make_shared<Link>(std::move(socket), *faults, random);
      links.push_back(link);
      link->Start(upstream);
      Accept();
    });
  }

  template <typename Action>
  void ForEachLink(Action action) {
    for (const auto& weak : links) {
      if (auto link = weak.lock()) action(*link);
    }
  }

  std::shared_ptr<FaultSet> faults;
  asio::io_context io{1};
  tcp::acceptor acceptor{io};
  asio::steady_timer retry{io};
  tcp::endpoint upstream;
  std::vector<std::weak_ptr<Link>> links;
  std::mt19937 random{std::random_device{}()};
  std::optional<FaultSet::Id> listener;
  std::thread thread;
  uint16_t port = 0;
};

FaultRelay::FaultRelay(std::shared_ptr<FaultSet> faults) : m_impl(std::make_unique<Impl>(std::move(faults))) {}

FaultRelay::~FaultRelay() { Stop(); }

bool FaultRelay::Start(const std::string& address, uint16_t port, uint16_t upstreamPort, std::string* error) {
  Impl& impl = *m_impl;
  asio::error_code ec;
  const asio::ip::address_v4 ip = asio::ip::make_address_v4(address, ec);
  const tcp::endpoint local(ip, port);
  if (!ec) impl.acceptor.open(local.protocol(), ec);
  if (!ec) impl.acceptor.set_option(tcp::acceptor::reuse_address(true), ec);
  if (!ec) impl.acceptor.bind(local, ec);
  if (!ec) impl.acceptor.listen(128, ec);
  if (ec) {
    asio::error_code ignored;
    impl.acceptor.close(ignored);
    if (error != nullptr) *error = "cannot listen on " + address + ":" + std::to_string(port) + ": " + ec.message();
    return false;
  }
  impl.port = impl.acceptor.local_endpoint().port();
  impl.upstream = tcp::endpoint(ip, upstreamPort);
  impl.Accept();
  Impl* shared = m_impl.get();
  impl.listener = impl.faults->AddListener(
      [shared] { asio::post(shared->io, [shared] { shared->ForEachLink([](Link& link) { link.Poke(); }); }); });
  impl.thread = std::thread([shared] { shared->io.run(); });
  return true;
}

void FaultRelay::Stop() {
  Impl& impl = *m_impl;
  if (!impl.thread.joinable()) return;
  impl.faults->RemoveListener(*impl.listener);
  Impl* shared = m_impl.get();
  asio::post(impl.io, [shared] {
    asio::error_code ignored;
    shared->acceptor.close(ignored);
    shared->retry.cancel();
    shared->ForEachLink([](Link& link) { link.Close(); });
  });
  impl.thread.join();  // returns once every connection's handlers have run out
}

uint16_t FaultRelay::Port() const { return m_impl->port; }

}  // namespace camsim
