// RtspSession.h - one RTSP client session: the handshake, the interleaved
// stream, keep-alive, dead-camera watch, status changes and close, all on one
// strand of the shared I/O engine; what it receives reaches the platform
// through the session's own Delivery. The public entry points block their
// caller only for the bounded time of one exchange.
#pragma once

#include <array>
// Asio chooses its aligned allocator from libstdc++'s configuration macros;
// a standard header first makes every translation unit see the same choice.
// clang-format off
#include <cstddef>
// clang-format on

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <asio/strand.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Delivery.h"
#include "MDClient.h"
#include "SessionSettings.h"
#include "protocol/KeyFrame.h"
#include "protocol/RtspAuth.h"
#include "protocol/RtspParser.h"
#include "protocol/RtspUrl.h"
#include "protocol/Sdp.h"

namespace mdclient {

class RtspSession : public std::enable_shared_from_this<RtspSession>, private RtspStreamParser::Listener {
 public:
  RtspSession(int32_t id, RtspUrl url, asio::io_context& context, const SessionSettings& settings = {});
  ~RtspSession() override;
  RtspSession(const RtspSession&) = delete;
  RtspSession& operator=(const RtspSession&) = delete;

  int32_t SetMessageCallback(MDC_MsgCallBack callback, void* user);
  int32_t SetPlayRange(double startMicros, double endMicros);
  int32_t Open(MDC_DataCallBack callback, void* user);
  int32_t ChangeStatus(int32_t kind, double speed);
  int32_t Close();

 private:
  using Strand = asio::strand<asio::io_context::executor_type>;
  using Completion = std::function<void(int32_t error, const RtspMessage* answer)>;
  enum class Phase { kCreated, kOpening, kOpen, kFailed, kClosed };

  struct PendingRequest {
    int cseq = 0;
    std::string method;
    std::string uri;
    std::string extraHeaders;
    bool authRetried = false;
    Completion done;
    std::shared_ptr<asio::steady_timer> timer;
  };

  // Strand side.
  void StartOpen();
  void OnConnected();
  void SendDescribe();
  void SendSetup(size_t index);
  void SendPlay();
  void FinishOpen(int32_t error, const std::string& reason);
  void SendRequest(const std::string& method, const std::string& uri, std::string extraHeaders,
                   std::chrono::milliseconds timeout, Completion done, bool authRetried = false);
  void Write(std::string bytes);
  void WriteNext();
  void StartRead();
  void OnMessage(const RtspMessage& message) override;
  void OnInterleaved(uint8_t channel, const uint8_t* data, size_t size) override;
  void AnswerServerRequest(const RtspMessage& request);
  void ScheduleKeepAlive();
  void WatchSilence();
  void OnPlayingChanged(bool paused);
  void ConnectionLost(int32_t error, const std::string& reason);
  void FailPending(int32_t error);
  void Stop(std::function<void()> done);
  void CloseSocket();
  void LogClosed();
  // Stray input a camera may repeat with every read is logged once a session.
  enum class LogKind { kUnexpectedAnswer, kUnknownCSeq, kKeepAliveRefused };
  bool FirstOfKind(LogKind kind);
  int32_t AnswerError(const RtspMessage& answer, const char* step);

  const int32_t m_id;
  const RtspUrl m_url;
  const std::string m_requestUri;  // no credentials: safe for requests and logs
  const SessionTimeouts m_timeouts;
  Strand m_strand;

  // API side, under m_apiMutex.
  std::mutex m_apiMutex;
  Phase m_phase = Phase::kCreated;
  std::string m_range;  // "clock=..." or empty

  // Callbacks, their queue and thread; shared with that thread.
  const std::shared_ptr<Delivery> m_delivery;

  // Strand side.
  asio::ip::tcp::resolver m_resolver;
  asio::ip::tcp::socket m_socket;
  asio::steady_timer m_connectTimer;
  asio::steady_timer m_keepAliveTimer;
  asio::steady_timer m_silenceTimer;
  std::chrono::steady_clock::time_point m_lastReceive;
  bool m_connectTimedOut = false;
  std::optional<std::promise<int32_t>> m_openResult;
  std::string m_playRange;
  RtspStreamParser m_parser;
  std::vector<uint8_t> m_receiveBuffer;
  std::deque<std::string> m_outbox;
  bool m_writing = false;
  std::vector<PendingRequest> m_pending;
  int m_cseq = 0;
  std::optional<AuthChallenge> m_challenge;
  uint32_t m_nonceCount = 0;
  std::string m_cnonce;
  bool m_keepAliveWithGetParameter = false;
  std::string m_sdp;
  SessionDescription m_description;
  std::string m_baseUrl;
  std::string m_aggregateUrl;
  std::string m_sessionId;
  int m_sessionTimeoutSeconds = 60;
  std::array<int8_t, 256> m_channelType{};
  std::array<int8_t, 256> m_channelMedium{};  // video RTP channels: index into m_keyFrames
  std::vector<KeyFrameDetector> m_keyFrames;
  bool m_hasVideo = false;
  bool m_playSent = false;   // packets from here on are kept, held until PLAY is answered
  bool m_streaming = false;  // PLAY answered, connection up
  bool m_paused = false;     // PAUSE answered: silence is expected, keep-alives are watched
  bool m_stopping = false;   // MDC_Close under way
  bool m_completeReported = false;
  uint32_t m_loggedKinds = 0;  // LogKind bits already logged
};

}  // namespace mdclient
