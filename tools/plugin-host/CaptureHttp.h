// CaptureHttp.h - the protocol half of the capture relay: HTTP/1.1 messages
// taken apart as their bytes arrive, and what of an exchange goes into a
// capture (never a credential). No sockets here.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

// One request or answer, read incrementally from a connection.
class HttpMessageReader {
 public:
  enum class Kind { Request, Response };
  explicit HttpMessageReader(Kind kind) : m_kind(kind) {}

  // Appends bytes; parsing stops at the end of one message, later bytes wait
  // in Rest().
  void Feed(const char* data, size_t size);
  // The peer closed: completes an answer whose body runs to the close.
  void FeedEnd();
  // For an answer to HEAD, which has headers but no body.
  void SetNoBody() { m_noBody = true; }

  bool HeadDone() const { return m_state != State::Head; }
  bool Complete() const { return m_state == State::Done; }
  bool Failed() const { return m_state == State::Failed; }
  const std::string& Error() const { return m_error; }

  const std::string& StartLine() const { return m_startLine; }
  const HttpHeaders& Headers() const { return m_headers; }
  std::string Header(const std::string& name) const;          // first value, name case-insensitive; "" when absent
  const std::string& Body() const { return m_body; }          // chunked encoding removed
  std::string Raw() const { return m_raw.substr(0, m_end); }  // the message's bytes as received
  std::string Rest() const { return m_raw.substr(m_end); }
  int Status() const;  // an answer's status code, 0 when unreadable

 private:
  enum class State { Head, Length, ChunkSize, ChunkData, ChunkEnd, Trailer, UntilClose, Done, Failed };
  void Parse();
  bool ParseHead(size_t headEnd);
  void Fail(const std::string& error);

  Kind m_kind;
  State m_state = State::Head;
  bool m_noBody = false;
  std::string m_raw;
  size_t m_pos = 0;  // parsed up to here in m_raw
  size_t m_end = 0;  // the message ends here once complete
  size_t m_left = 0;
  std::string m_startLine;
  HttpHeaders m_headers;
  std::string m_body;
  std::string m_error;
};

// What a capture keeps of one exchange.
struct CapturedExchange {
  std::string method;
  std::string path;   // without the query
  std::string query;  // raw, without the '?'
  HttpHeaders requestHeaders;
  std::string requestBody;
  int status = 0;  // 0: no answer (see failure)
  HttpHeaders answerHeaders;
  std::string answerBody;
  std::string failure;  // why the camera gave no complete answer
  long milliseconds = 0;
};

// Request headers worth keeping (the rest is the client's own business);
// Authorization, Cookie and Proxy-Authorization never pass.
HttpHeaders KeptRequestHeaders(const HttpHeaders& headers);
// Answer headers worth keeping; a WWW-Authenticate challenge keeps its kind,
// realm, qop and algorithm but not its nonce or opaque value.
HttpHeaders KeptAnswerHeaders(const HttpHeaders& headers);
std::string ChallengeKind(const std::string& challenge);

// The first leg of an authentication exchange (no credentials sent, 401
// answered) says nothing a replay needs beyond the challenge's kind.
bool IsAuthenticationLeg(const HttpMessageReader& request, int status);

// Replaces every occurrence of `secret` in `text` (a password a client put in
// a query or body); the count of replacements.
size_t Redact(std::string& text, const std::string& secret);

// The request as it goes to the camera: the client's own bytes, less an
// "Expect: 100-continue" the relay has answered itself; `body` replaces the
// client's body when given.
std::string ForwardedRequest(const HttpMessageReader& request, const std::string* body = nullptr);

// A simulated camera posts alarms from its own address, which the plug-in,
// pointed at the relay, would not take for its camera's; the relay has the
// camera post them to itself instead and passes them on from its own address.
constexpr const char kAlarmControlPath[] = "/camera-sim/alarm";
constexpr const char kRelayedAlarmPath[] = "/capture-relay/alarm";
