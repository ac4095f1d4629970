// RtspParser.h - incremental reader of the server-to-client byte stream of an
// RTSP session over TCP: RTSP messages and '$'-framed interleaved packets mixed
// on one connection. Feed it bytes in any chunking; it reports complete
// messages and packets. Interleaved payloads that arrive whole in one chunk
// are handed out straight from the caller's buffer, so steady-state streaming
// does no copying and no allocation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace mdclient {

struct RtspHeader {
  std::string name;
  std::string value;
};

struct RtspMessage {
  bool isResponse = false;
  int statusCode = 0;  // responses
  std::string reason;  // responses
  std::string method;  // requests the server sends us
  std::string uri;     // requests
  std::vector<RtspHeader> headers;
  std::string body;

  // First header of that name (case-insensitive), or nullptr.
  const std::string* Find(std::string_view name) const;
  std::vector<const std::string*> FindAll(std::string_view name) const;
  // CSeq as a number; -1 when missing or malformed.
  int CSeq() const;
  void Clear();
};

struct RtspParserLimits {
  size_t maxHeaderBytes = 64 * 1024;
  size_t maxBodyBytes = 64 * 1024;
};

class RtspStreamParser {
 public:
  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void OnMessage(const RtspMessage& message) = 0;
    // `data` is valid only during the call.
    virtual void OnInterleaved(uint8_t channel, const uint8_t* data, size_t size) = 0;
  };

  explicit RtspStreamParser(RtspParserLimits limits = {});

  // Consumes all of `data`. Returns false once the stream is malformed; the
  // parser then stays failed (Error() says why) until Reset().
  bool Feed(const uint8_t* data, size_t size, Listener& listener);
  bool Failed() const { return m_state == State::kFailed; }
  const std::string& Error() const { return m_error; }
  void Reset();

 private:
  enum class State { kIdle, kFrameHeader, kFramePayload, kHeader, kBody, kFailed };

  bool Fail(std::string reason);
  bool AcceptHeaderByte(char c);
  bool ParseHeaderBlock();

  RtspParserLimits m_limits;
  State m_state = State::kIdle;
  std::string m_error;
  // Interleaved frame in progress.
  uint8_t m_frameHeader[3] = {0, 0, 0};
  size_t m_frameHeaderFill = 0;
  size_t m_frameLength = 0;
  std::vector<uint8_t> m_frame;  // only for frames split across chunks
  // RTSP message in progress.
  std::string m_header;
  bool m_inFirstToken = true;
  size_t m_bodyLength = 0;
  RtspMessage m_message;
};

}  // namespace mdclient
