#include "RtspSession.h"

#include <asio/connect.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <cstdio>
#include <random>
#include <utility>

#include "evlog.h"
#include "protocol/RtspRequest.h"
#include "protocol/Text.h"

namespace mdclient {
namespace {

constexpr const char* kModule = "mdclient";
constexpr size_t kReceiveBufferBytes = 64 * 1024;
constexpr size_t kMaxMedia = 16;  // interleaved channels 0..31
// Upper bound for a blocked caller on top of the session's own timers, which
// normally end every wait long before.
constexpr std::chrono::seconds kCallerSafetyMargin{5};

std::string RandomHex(size_t digits) {
  static const char kHex[] = "0123456789abcdef";
  std::random_device device;
  std::string text;
  for (size_t i = 0; i < digits; ++i) text.push_back(kHex[device() & 15]);
  return text;
}

int8_t DataType(MediaKind kind, bool rtcp) {
  switch (kind) {
    case MediaKind::kVideo:
      return rtcp ? MDC_DATA_RTCP_VIDEO : MDC_DATA_VIDEO;
    case MediaKind::kAudio:
      return rtcp ? MDC_DATA_RTCP_AUDIO : MDC_DATA_AUDIO;
    case MediaKind::kMetadata:
      break;
  }
  return rtcp ? MDC_DATA_RTCP_META : MDC_DATA_META;
}

bool IsAbsoluteRtspUrl(const std::string& text) {
  return text.compare(0, 7, "rtsp://") == 0 || text.compare(0, 7, "RTSP://") == 0;
}

}  // namespace

RtspSession::RtspSession(int32_t id, RtspUrl url, asio::io_context& context, const SessionSettings& settings)
    : m_id(id),
      m_url(std::move(url)),
      m_requestUri(m_url.RequestUri()),
      m_timeouts(settings.timeouts),
      m_strand(asio::make_strand(context)),
      m_delivery(std::make_shared<Delivery>(id, settings.deliveryQueueBytes)),
      m_resolver(m_strand),
      m_socket(m_strand),
      m_connectTimer(m_strand),
      m_keepAliveTimer(m_strand),
      m_silenceTimer(m_strand),
      m_cnonce(RandomHex(16)) {
  m_channelType.fill(-1);
  m_channelMedium.fill(-1);
}

// MDC_Destroy has closed the session; one that never was (process exit) must
// still end its delivery thread. This may run on an I/O thread: after a close
// it must not touch the gate, which a callback may hold.
RtspSession::~RtspSession() {
  if (m_phase != Phase::kClosed) m_delivery->Close();
}

int32_t RtspSession::SetMessageCallback(MDC_MsgCallBack callback, void* user) {
  return m_delivery->SetMessageCallback(callback, user) ? 0 : static_cast<int32_t>(MDC_ERR_STATE);
}

int32_t RtspSession::SetPlayRange(double startMicros, double endMicros) {
  std::lock_guard<std::mutex> lock(m_apiMutex);
  if (m_phase != Phase::kCreated) {
    evlog_write(EVLOG_WARN, kModule, "client %d: play range set after open, ignored", m_id);
    return static_cast<int32_t>(MDC_ERR_STATE);
  }
  if (startMicros == 0 && endMicros == 0) {
    m_range.clear();
    return 0;
  }
  std::optional<std::string> range = FormatClockRange(startMicros, endMicros);
  if (!range) {
    evlog_write(EVLOG_ERROR, kModule, "client %d: invalid play range %.0f-%.0f us", m_id, startMicros, endMicros);
    return static_cast<int32_t>(MDC_ERR_INVALID_ARG);
  }
  m_range = *range;
  return 0;
}

int32_t RtspSession::Open(MDC_DataCallBack callback, void* user) {
  if (callback == nullptr) return static_cast<int32_t>(MDC_ERR_INVALID_ARG);
  std::future<int32_t> result;
  {
    std::lock_guard<std::mutex> lock(m_apiMutex);
    if (m_phase != Phase::kCreated) return static_cast<int32_t>(MDC_ERR_STATE);
    m_phase = Phase::kOpening;  // a second open is refused from here on
  }
  // Outside the API lock: a running callback holds the delivery gate and may
  // call into this session, which takes the API lock.
  if (!m_delivery->SetDataCallback(callback, user)) return static_cast<int32_t>(MDC_ERR_STATE);
  {
    std::lock_guard<std::mutex> lock(m_apiMutex);
    if (m_phase != Phase::kOpening) return static_cast<int32_t>(MDC_ERR_STATE);  // closed meanwhile
    m_delivery->Start();
    auto promise = std::make_shared<std::promise<int32_t>>();
    result = promise->get_future();
    asio::post(m_strand, [self = shared_from_this(), promise, range = m_range]() mutable {
      self->m_openResult.emplace(std::move(*promise));
      self->m_playRange = std::move(range);
      self->StartOpen();
    });
  }
  // The handshake's own timers bound this wait; the margin only guards
  // against a stalled engine.
  auto bound = m_timeouts.connect + m_timeouts.answer * static_cast<int>(3 + kMaxMedia) + kCallerSafetyMargin;
  int32_t error =
      result.wait_for(bound) == std::future_status::ready ? result.get() : static_cast<int32_t>(MDC_ERR_TIMEOUT);
  // A failed open delivers nothing: what was held back goes with the thread.
  if (error != 0) m_delivery->Close();
  std::lock_guard<std::mutex> lock(m_apiMutex);
  if (m_phase == Phase::kOpening) m_phase = error == 0 ? Phase::kOpen : Phase::kFailed;
  return error;
}

void RtspSession::StartOpen() {
  if (m_stopping) return;
  m_receiveBuffer.resize(kReceiveBufferBytes);
  m_connectTimer.expires_after(m_timeouts.connect);
  m_connectTimer.async_wait([self = shared_from_this()](const asio::error_code& error) {
    // No request sent yet means we are still resolving or connecting.
    if (error || !self->m_openResult || self->m_cseq != 0) return;
    self->m_connectTimedOut = true;
    self->m_resolver.cancel();
    asio::error_code ignored;
    self->m_socket.close(ignored);
  });
  m_resolver.async_resolve(
      m_url.host, std::to_string(m_url.port), asio::ip::resolver_base::numeric_service,
      [self = shared_from_this()](const asio::error_code& error, const asio::ip::tcp::resolver::results_type& results) {
        if (self->m_stopping || !self->m_openResult) return;
        if (error) {
          self->FinishOpen(
              self->m_connectTimedOut ? static_cast<int32_t>(MDC_ERR_TIMEOUT) : static_cast<int32_t>(MDC_ERR_CONNECT),
              self->m_connectTimedOut ? "name resolution timed out" : "cannot resolve host: " + error.message());
          return;
        }
        asio::async_connect(
            self->m_socket, results, [self](const asio::error_code& connectError, const asio::ip::tcp::endpoint&) {
              if (self->m_stopping || !self->m_openResult) return;
              if (connectError) {
                self->FinishOpen(
                    self->m_connectTimedOut ? static_cast<int32_t>(MDC_ERR_TIMEOUT)
                                            : static_cast<int32_t>(MDC_ERR_CONNECT),
                    self->m_connectTimedOut ? "connect timed out" : "connect failed: " + connectError.message());
                return;
              }
              self->OnConnected();
            });
      });
}

void RtspSession::OnConnected() {
  m_connectTimer.cancel();
  asio::error_code ignored;
  m_socket.set_option(asio::ip::tcp::no_delay(true), ignored);
  StartRead();
  SendRequest("OPTIONS", m_requestUri, "", m_timeouts.answer,
              [this, self = shared_from_this()](int32_t error, const RtspMessage* answer) {
                if (error != 0) {
                  FinishOpen(error, "no answer to OPTIONS");
                  return;
                }
                // A failed OPTIONS is not fatal: DESCRIBE decides.
                if (answer->statusCode == 200) {
                  const std::string* methods = answer->Find("Public");
                  m_keepAliveWithGetParameter = methods != nullptr && ListsMethod(*methods, "GET_PARAMETER");
                }
                SendDescribe();
              });
}

int32_t RtspSession::AnswerError(const RtspMessage& answer, const char* step) {
  int32_t error = answer.statusCode == 401 ? static_cast<int32_t>(MDC_ERR_AUTH) : static_cast<int32_t>(MDC_ERR_STATUS);
  std::string reason =
      std::string(step) + " answered " + std::to_string(answer.statusCode) + " " + LogSafe(answer.reason);
  if (answer.statusCode == 401 && !m_url.hasCredentials) reason += " (the URL holds no credentials)";
  FinishOpen(error, reason);
  return error;
}

void RtspSession::SendDescribe() {
  SendRequest("DESCRIBE", m_requestUri, "Accept: application/sdp\r\n", m_timeouts.answer,
              [this, self = shared_from_this()](int32_t error, const RtspMessage* answer) {
                if (error != 0) {
                  FinishOpen(error, "no answer to DESCRIBE");
                  return;
                }
                if (answer->statusCode != 200) {
                  AnswerError(*answer, "DESCRIBE");
                  return;
                }
                m_description = ParseSessionDescription(answer->body);
                if (m_description.media.empty()) {
                  FinishOpen(static_cast<int32_t>(MDC_ERR_PROTOCOL), "DESCRIBE answer holds no SDP media");
                  return;
                }
                if (m_description.media.size() > kMaxMedia) {
                  evlog_write(EVLOG_WARN, kModule, "client %d: SDP of %s has %zu media, setting up the first %zu", m_id,
                              m_requestUri.c_str(), m_description.media.size(), kMaxMedia);
                  m_description.media.resize(kMaxMedia);
                }
                m_sdp = answer->body;
                const std::string* base = answer->Find("Content-Base");
                if (base == nullptr) base = answer->Find("Content-Location");
                m_baseUrl = base != nullptr && IsAbsoluteRtspUrl(*base) ? *base : m_requestUri;
                m_aggregateUrl = ResolveControlUrl(m_baseUrl, m_description.sessionControl);
                SendSetup(0);
              });
}

void RtspSession::SendSetup(size_t index) {
  if (index == m_description.media.size()) {
    SendPlay();
    return;
  }
  const int rtp = static_cast<int>(index) * 2;
  std::string transport =
      "Transport: RTP/AVP/TCP;unicast;interleaved=" + std::to_string(rtp) + "-" + std::to_string(rtp + 1) + "\r\n";
  std::string uri = ResolveControlUrl(m_baseUrl, m_description.media[index].control);
  SendRequest("SETUP", uri, std::move(transport), m_timeouts.answer,
              [this, self = shared_from_this(), index, rtp](int32_t error, const RtspMessage* answer) {
                if (error != 0) {
                  FinishOpen(error, "no answer to SETUP");
                  return;
                }
                if (answer->statusCode != 200) {
                  AnswerError(*answer, "SETUP");
                  return;
                }
                if (const std::string* session = answer->Find("Session")) {
                  if (std::optional<SessionHeader> header = ParseSessionHeader(*session)) {
                    m_sessionId = header->id;
                    m_sessionTimeoutSeconds = header->timeoutSeconds;
                  }
                }
                if (m_sessionId.empty()) {
                  FinishOpen(static_cast<int32_t>(MDC_ERR_PROTOCOL), "SETUP answer without Session");
                  return;
                }
                InterleavedChannels channels{rtp, rtp + 1};
                if (const std::string* transportAnswer = answer->Find("Transport")) {
                  if (std::optional<InterleavedChannels> chosen = ParseInterleaved(*transportAnswer)) {
                    channels = *chosen;
                  }
                }
                const SdpMedium& medium = m_description.media[index];
                MediaKind kind = medium.kind;
                m_channelType[static_cast<size_t>(channels.rtp)] = DataType(kind, false);
                if (kind == MediaKind::kVideo) {
                  m_hasVideo = true;
                  m_channelMedium[static_cast<size_t>(channels.rtp)] = static_cast<int8_t>(m_keyFrames.size());
                  m_keyFrames.emplace_back(medium.formats.empty() ? VideoCodec::kOther
                                                                  : VideoCodecOf(medium.formats.front().encoding));
                }
                if (channels.rtcp >= 0) m_channelType[static_cast<size_t>(channels.rtcp)] = DataType(kind, true);
                SendSetup(index + 1);
              });
}

void RtspSession::SendPlay() {
  std::string range = "Range: " + (m_playRange.empty() ? std::string("npt=0.000-") : m_playRange) + "\r\n";
  // The SDP goes first; packets a server sends before or with its answer
  // follow it, held back until the answer says the session is open.
  m_delivery->PushDescription(m_sdp);
  m_playSent = true;
  SendRequest("PLAY", m_aggregateUrl, std::move(range), m_timeouts.answer,
              [this, self = shared_from_this()](int32_t error, const RtspMessage* answer) {
                if (error != 0) {
                  FinishOpen(error, "no answer to PLAY");
                  return;
                }
                if (answer->statusCode != 200) {
                  AnswerError(*answer, "PLAY");
                  return;
                }
                m_streaming = true;
                evlog_write(EVLOG_INFO, kModule, "client %d: playing %s (%zu media, session timeout %d s)", m_id,
                            m_requestUri.c_str(), m_description.media.size(), m_sessionTimeoutSeconds);
                m_delivery->Release();
                FinishOpen(0, "");
                ScheduleKeepAlive();
                WatchSilence();
              });
}

void RtspSession::FinishOpen(int32_t error, const std::string& reason) {
  if (!m_openResult) return;
  // Taken before anything else: failing the pending requests runs their
  // completions, which come back here ("no answer to PLAY") and must find the
  // open finished, with the first reason, the one that counts.
  std::promise<int32_t> result = std::move(*m_openResult);
  m_openResult.reset();
  m_connectTimer.cancel();
  if (error != 0) {
    evlog_write(EVLOG_ERROR, kModule, "client %d: open of %s failed (0x%x): %s", m_id, m_requestUri.c_str(),
                static_cast<unsigned>(error), reason.c_str());
    m_resolver.cancel();
    CloseSocket();
    FailPending(static_cast<int32_t>(MDC_ERR_CLOSED));
  }
  result.set_value(error);
}

void RtspSession::SendRequest(const std::string& method, const std::string& uri, std::string extraHeaders,
                              std::chrono::milliseconds timeout, Completion done, bool authRetried) {
  PendingRequest request;
  request.cseq = ++m_cseq;
  request.method = method;
  request.uri = uri;
  request.extraHeaders = std::move(extraHeaders);
  request.authRetried = authRetried;
  request.done = std::move(done);
  request.timer = std::make_shared<asio::steady_timer>(m_strand, timeout);

  std::string headers = request.extraHeaders;
  if (!m_sessionId.empty() && method != "DESCRIBE") {
    headers += "Session: " + m_sessionId + "\r\n";
  }
  if (m_challenge) {
    DigestRequest digest{m_url.user, m_url.password, method, uri, ++m_nonceCount, m_cnonce};
    headers += "Authorization: " + AuthorizationValue(*m_challenge, digest) + "\r\n";
  }
  evlog_write(EVLOG_TRACE, kModule, "client %d: %s %s CSeq %d", m_id, method.c_str(), RedactUrl(uri).c_str(),
              request.cseq);
  Write(FormatRequest(method, uri, request.cseq, headers));

  request.timer->async_wait([this, self = shared_from_this(), cseq = request.cseq](const asio::error_code& error) {
    if (error) return;
    for (auto it = m_pending.begin(); it != m_pending.end(); ++it) {
      if (it->cseq != cseq) continue;
      Completion expired = std::move(it->done);
      evlog_write(EVLOG_WARN, kModule, "client %d: no answer to %s within the time limit", m_id, it->method.c_str());
      m_pending.erase(it);
      expired(static_cast<int32_t>(MDC_ERR_TIMEOUT), nullptr);
      return;
    }
  });
  m_pending.push_back(std::move(request));
}

void RtspSession::Write(std::string bytes) {
  if (!m_socket.is_open()) return;
  m_outbox.push_back(std::move(bytes));
  if (!m_writing) WriteNext();
}

void RtspSession::WriteNext() {
  if (m_outbox.empty() || !m_socket.is_open()) {
    m_writing = false;
    return;
  }
  m_writing = true;
  asio::async_write(m_socket, asio::buffer(m_outbox.front()),
                    [this, self = shared_from_this()](const asio::error_code& error, size_t) {
                      m_writing = false;
                      if (!m_outbox.empty()) m_outbox.pop_front();
                      if (error) {
                        m_outbox.clear();
                        if (error != asio::error::operation_aborted) {
                          ConnectionLost(static_cast<int32_t>(MDC_ERR_CLOSED), "send failed: " + error.message());
                        }
                        return;
                      }
                      WriteNext();
                    });
}

void RtspSession::StartRead() {
  m_socket.async_read_some(
      asio::buffer(m_receiveBuffer), [this, self = shared_from_this()](const asio::error_code& error, size_t size) {
        if (error) {
          if (error == asio::error::operation_aborted) return;
          ConnectionLost(static_cast<int32_t>(MDC_ERR_CLOSED), error == asio::error::eof
                                                                   ? std::string("connection closed by server")
                                                                   : "receive failed: " + error.message());
          return;
        }
        m_lastReceive = std::chrono::steady_clock::now();
        const bool parsed = m_parser.Feed(m_receiveBuffer.data(), size, *this);
        m_delivery->Flush();
        if (!parsed) {
          ConnectionLost(static_cast<int32_t>(MDC_ERR_PROTOCOL), "malformed data from server: " + m_parser.Error());
          return;
        }
        if (m_socket.is_open()) StartRead();
      });
}

void RtspSession::OnMessage(const RtspMessage& message) {
  if (!message.isResponse) {
    AnswerServerRequest(message);
    return;
  }
  if (m_pending.empty()) {
    if (FirstOfKind(LogKind::kUnexpectedAnswer)) {
      evlog_write(EVLOG_WARN, kModule, "client %d: unexpected answer %d from %s (logged once)", m_id,
                  message.statusCode, m_requestUri.c_str());
    }
    return;
  }
  int cseq = message.CSeq();
  auto it = m_pending.begin();
  if (cseq >= 0) {
    while (it != m_pending.end() && it->cseq != cseq) ++it;
    if (it == m_pending.end()) {
      if (FirstOfKind(LogKind::kUnknownCSeq)) {
        evlog_write(EVLOG_WARN, kModule, "client %d: answer with unknown CSeq %d ignored (logged once)", m_id, cseq);
      }
      return;
    }
  }
  PendingRequest request = std::move(*it);
  m_pending.erase(it);
  request.timer->cancel();

  if (const std::string* session = message.Find("Session")) {
    std::optional<SessionHeader> header = ParseSessionHeader(*session);
    if (header && header->id == m_sessionId) m_sessionTimeoutSeconds = header->timeoutSeconds;
  }
  if (message.statusCode == 401 && m_url.hasCredentials && !request.authRetried && !m_stopping) {
    std::optional<AuthChallenge> challenge = ChooseAuthChallenge(message.FindAll("WWW-Authenticate"));
    if (challenge) {
      m_challenge = std::move(challenge);
      m_nonceCount = 0;
      SendRequest(request.method, request.uri, std::move(request.extraHeaders), m_timeouts.answer,
                  std::move(request.done), true);
      return;
    }
    evlog_write(EVLOG_ERROR, kModule, "client %d: %s offers no usable authentication scheme", m_id,
                m_requestUri.c_str());
  }
  request.done(0, &message);
}

void RtspSession::AnswerServerRequest(const RtspMessage& request) {
  int cseq = request.CSeq();
  if (cseq < 0) return;
  // Servers probe liveness with OPTIONS or GET_PARAMETER; other requests are not for a player.
  bool known = request.method == "OPTIONS" || request.method == "GET_PARAMETER";
  std::string answer = known ? "RTSP/1.0 200 OK\r\n" : "RTSP/1.0 501 Not Implemented\r\n";
  answer += "CSeq: " + std::to_string(cseq) + "\r\n";
  if (!m_sessionId.empty()) answer += "Session: " + m_sessionId + "\r\n";
  answer += "\r\n";
  Write(std::move(answer));
}

void RtspSession::OnInterleaved(uint8_t channel, const uint8_t* data, size_t size) {
  if (!m_playSent || m_stopping) return;
  int8_t type = m_channelType[channel];
  if (type < 0) return;
  // Every video packet goes through its detector, dropped or not, so that
  // access unit boundaries stay known. Without video any packet will do.
  const int8_t medium = m_channelMedium[channel];
  KeyFrameDetector* video = medium >= 0 ? &m_keyFrames[static_cast<size_t>(medium)] : nullptr;
  const bool resumePoint = video != nullptr ? video->StartsKeyFrame(data, size) : !m_hasVideo;
  // Video is handed over a picture at a time, which is what the consumer
  // turns packets into anyway; every other packet is whole by itself.
  m_delivery->PushData(type, data, size, resumePoint, video == nullptr || video->AtUnitBoundary());
  if (type >= MDC_DATA_RTCP_VIDEO && !m_completeReported && RtcpHasBye(data, size)) {
    m_completeReported = true;
    m_silenceTimer.cancel();
    evlog_write(EVLOG_INFO, kModule, "client %d: %s ended the stream (RTCP BYE)", m_id, m_requestUri.c_str());
    m_delivery->PushMessage(MDC_MSG_COMPLETE, "stream ended by server");
  }
}

void RtspSession::ScheduleKeepAlive() {
  int seconds = m_sessionTimeoutSeconds > 2 ? m_sessionTimeoutSeconds / 2 : 1;
  m_keepAliveTimer.expires_after(std::chrono::seconds(seconds));
  m_keepAliveTimer.async_wait([this, self = shared_from_this()](const asio::error_code& error) {
    if (error || !m_streaming || m_stopping) return;
    const char* method = m_keepAliveWithGetParameter ? "GET_PARAMETER" : "OPTIONS";
    SendRequest(method, m_aggregateUrl, "", m_timeouts.silence,
                [this, self, method](int32_t requestError, const RtspMessage* answer) {
                  if (requestError == 0 && answer->statusCode != 200 && FirstOfKind(LogKind::kKeepAliveRefused)) {
                    evlog_write(EVLOG_WARN, kModule, "client %d: keep-alive %s to %s answered %d %s (logged once)",
                                m_id, method, m_requestUri.c_str(), answer->statusCode,
                                LogSafe(answer->reason).c_str());
                  }
                  // While paused the camera sends nothing else: an unanswered
                  // keep-alive is the only sign that it is gone.
                  if (requestError == static_cast<int32_t>(MDC_ERR_TIMEOUT) && m_paused && m_streaming && !m_stopping) {
                    ConnectionLost(requestError, "keep-alive " + std::string(method) + " unanswered for " +
                                                     std::to_string(m_timeouts.silence.count()) + " ms while paused");
                  }
                });
    ScheduleKeepAlive();
  });
}

// While playing, a camera that sends nothing at all (frozen, cable pulled,
// NAT entry gone) is dead: TCP alone would not tell us for many minutes.
void RtspSession::WatchSilence() {
  m_silenceTimer.expires_at(m_lastReceive + m_timeouts.silence);
  m_silenceTimer.async_wait([this, self = shared_from_this()](const asio::error_code& error) {
    if (error || !m_streaming || m_stopping || m_paused || m_completeReported) return;
    if (std::chrono::steady_clock::now() - m_lastReceive < m_timeouts.silence) {
      WatchSilence();
      return;
    }
    ConnectionLost(static_cast<int32_t>(MDC_ERR_TIMEOUT),
                   "nothing received for " + std::to_string(m_timeouts.silence.count()) + " ms");
  });
}

void RtspSession::OnPlayingChanged(bool paused) {
  if (paused == m_paused || !m_streaming || m_stopping) return;
  m_paused = paused;
  if (paused) {
    m_silenceTimer.cancel();
  } else {
    m_lastReceive = std::chrono::steady_clock::now();
    WatchSilence();
  }
}

void RtspSession::ConnectionLost(int32_t error, const std::string& reason) {
  bool wasStreaming = m_streaming;
  m_streaming = false;
  m_keepAliveTimer.cancel();
  m_silenceTimer.cancel();
  CloseSocket();
  if (m_openResult) {
    FinishOpen(error, reason);
    return;
  }
  FailPending(static_cast<int32_t>(MDC_ERR_CLOSED));
  if (m_stopping || !wasStreaming) return;
  if (m_completeReported) {
    // The server said goodbye already; its hanging up is expected.
    evlog_write(EVLOG_INFO, kModule, "client %d: %s closed after the end of the stream", m_id, m_requestUri.c_str());
    return;
  }
  evlog_write(EVLOG_ERROR, kModule, "client %d: session with %s lost: %s", m_id, m_requestUri.c_str(), reason.c_str());
  m_delivery->PushMessage(MDC_MSG_CLOSED, reason);
}

void RtspSession::FailPending(int32_t error) {
  std::vector<PendingRequest> pending = std::move(m_pending);
  m_pending.clear();
  for (PendingRequest& request : pending) {
    request.timer->cancel();
    request.done(error, nullptr);
  }
}

void RtspSession::CloseSocket() {
  asio::error_code ignored;
  m_socket.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
  m_socket.close(ignored);
  m_outbox.clear();
}

int32_t RtspSession::ChangeStatus(int32_t kind, double speed) {
  std::string method = "PLAY";
  std::string headers;
  if (kind == MDC_STATUS_PAUSE) {
    method = "PAUSE";
  } else if (kind == MDC_STATUS_SPEED) {
    std::optional<std::string> scale = FormatScale(speed);
    if (!scale) return static_cast<int32_t>(MDC_ERR_INVALID_ARG);
    headers = "Scale: " + *scale + "\r\n";
  } else if (kind != MDC_STATUS_RESUME) {
    return static_cast<int32_t>(MDC_ERR_INVALID_ARG);
  }
  {
    std::lock_guard<std::mutex> lock(m_apiMutex);
    if (m_phase != Phase::kOpen) return static_cast<int32_t>(MDC_ERR_STATE);
  }
  auto promise = std::make_shared<std::promise<int32_t>>();
  std::future<int32_t> result = promise->get_future();
  asio::post(m_strand, [this, self = shared_from_this(), promise, method, headers]() {
    if (!m_streaming || m_stopping) {
      promise->set_value(static_cast<int32_t>(MDC_ERR_CLOSED));
      return;
    }
    SendRequest(method, m_aggregateUrl, headers, m_timeouts.answer,
                [this, promise, method](int32_t error, const RtspMessage* answer) {
                  if (error == 0 && answer->statusCode != 200) {
                    evlog_write(EVLOG_ERROR, kModule, "client %d: %s to %s answered %d %s", m_id, method.c_str(),
                                m_requestUri.c_str(), answer->statusCode, LogSafe(answer->reason).c_str());
                    error = static_cast<int32_t>(MDC_ERR_STATUS);
                  }
                  if (error == 0) OnPlayingChanged(method == "PAUSE");
                  promise->set_value(error);
                });
  });
  // Callbacks run on the session's own delivery thread, never on the strand,
  // so waiting here is safe from inside one too.
  if (result.wait_for(m_timeouts.answer + kCallerSafetyMargin) != std::future_status::ready) {
    return static_cast<int32_t>(MDC_ERR_TIMEOUT);
  }
  return result.get();
}

int32_t RtspSession::Close() {
  // Waits for a callback running on the delivery thread, unless this is it.
  m_delivery->Close();
  {
    std::lock_guard<std::mutex> lock(m_apiMutex);
    if (m_phase == Phase::kClosed) return 0;
    bool neverOpened = m_phase == Phase::kCreated;
    m_phase = Phase::kClosed;
    if (neverOpened) return 0;
  }
  auto stopped = std::make_shared<std::promise<void>>();
  std::future<void> done = stopped->get_future();
  asio::post(m_strand, [self = shared_from_this(), stopped]() { self->Stop([stopped] { stopped->set_value(); }); });
  done.wait_for(m_timeouts.teardown + kCallerSafetyMargin);
  return 0;
}

void RtspSession::Stop(std::function<void()> done) {
  if (m_stopping) {
    done();
    return;
  }
  m_stopping = true;
  bool wasStreaming = m_streaming;
  m_streaming = false;
  m_keepAliveTimer.cancel();
  m_silenceTimer.cancel();
  m_connectTimer.cancel();
  m_resolver.cancel();
  if (m_openResult) FinishOpen(static_cast<int32_t>(MDC_ERR_CLOSED), "closed by the caller during open");
  FailPending(static_cast<int32_t>(MDC_ERR_CLOSED));
  if (!wasStreaming || !m_socket.is_open()) {
    CloseSocket();
    LogClosed();
    done();
    return;
  }
  // TEARDOWN is a courtesy: whichever comes first, its answer or the short
  // bound, ends the session.
  auto finish = std::make_shared<std::function<void()>>(std::move(done));
  SendRequest("TEARDOWN", m_aggregateUrl, "", m_timeouts.teardown,
              [this, self = shared_from_this(), finish](int32_t, const RtspMessage*) {
                CloseSocket();
                LogClosed();
                (*finish)();
              });
}

bool RtspSession::FirstOfKind(LogKind kind) {
  const uint32_t bit = 1u << static_cast<int>(kind);
  return (std::exchange(m_loggedKinds, m_loggedKinds | bit) & bit) == 0;
}

void RtspSession::LogClosed() {
  const uint64_t dropped = m_delivery->Dropped();
  if (dropped == 0) {
    evlog_write(EVLOG_INFO, kModule, "client %d: closed %s", m_id, m_requestUri.c_str());
  } else {
    evlog_write(EVLOG_INFO, kModule, "client %d: closed %s (%llu packets dropped for a slow consumer)", m_id,
                m_requestUri.c_str(), static_cast<unsigned long long>(dropped));
  }
}

}  // namespace mdclient
