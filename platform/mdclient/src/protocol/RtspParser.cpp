#include "protocol/RtspParser.h"
#include "protocol/Text.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace mdclient {
namespace {

// Characters of a method name or of "RTSP/1.0": anything else at the start
// of a message means the stream is not RTSP, and we stop at once instead of
// buffering garbage up to the header limit.
bool IsStartTokenChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '/' || c == '.' || c == '_' || c == '-';
}

constexpr size_t kMaxStartToken = 32;

}  // namespace

const std::string* RtspMessage::Find(std::string_view name) const {
  for (const RtspHeader& header : headers) {
    if (EqualsIgnoreCase(header.name, name)) return &header.value;
  }
  return nullptr;
}

std::vector<const std::string*> RtspMessage::FindAll(std::string_view name) const {
  std::vector<const std::string*> found;
  for (const RtspHeader& header : headers) {
    if (EqualsIgnoreCase(header.name, name)) found.push_back(&header.value);
  }
  return found;
}

int RtspMessage::CSeq() const {
  const std::string* value = Find("CSeq");
  if (value == nullptr || value->empty() || value->size() > 9) return -1;
  int number = 0;
  for (char c : *value) {
    if (c < '0' || c > '9') return -1;
    number = number * 10 + (c - '0');
  }
  return number;
}

void RtspMessage::Clear() {
  isResponse = false;
  statusCode = 0;
  reason.clear();
  method.clear();
  uri.clear();
  headers.clear();
  body.clear();
}

RtspStreamParser::RtspStreamParser(RtspParserLimits limits) : m_limits(limits) {}

void RtspStreamParser::Reset() {
  m_state = State::kIdle;
  m_error.clear();
  m_frameHeaderFill = 0;
  m_frameLength = 0;
  m_frame.clear();
  m_header.clear();
  m_inFirstToken = true;
  m_bodyLength = 0;
  m_message.Clear();
}

bool RtspStreamParser::Fail(std::string reason) {
  m_state = State::kFailed;
  m_error = std::move(reason);
  m_header.clear();
  m_header.shrink_to_fit();
  m_message.Clear();
  return false;
}

bool RtspStreamParser::Feed(const uint8_t* data, size_t size, Listener& listener) {
  size_t pos = 0;
  while (pos < size) {
    switch (m_state) {
      case State::kFailed:
        return false;

      case State::kIdle: {
        char c = static_cast<char>(data[pos]);
        if (c == '$') {
          ++pos;
          m_frameHeaderFill = 0;
          m_state = State::kFrameHeader;
        } else if (c == '\r' || c == '\n') {
          ++pos;  // blank lines between messages are tolerated
        } else {
          m_header.clear();
          m_inFirstToken = true;
          m_message.Clear();
          m_state = State::kHeader;
        }
        break;
      }

      case State::kFrameHeader:
        m_frameHeader[m_frameHeaderFill++] = data[pos++];
        if (m_frameHeaderFill == 3) {
          m_frameLength = (static_cast<size_t>(m_frameHeader[1]) << 8) | m_frameHeader[2];
          m_frame.clear();
          m_state = m_frameLength == 0 ? State::kIdle : State::kFramePayload;
        }
        break;

      case State::kFramePayload: {
        size_t available = size - pos;
        if (m_frame.empty() && available >= m_frameLength) {
          // Whole payload in this chunk: hand it out in place.
          const uint8_t* payload = data + pos;
          pos += m_frameLength;
          m_state = State::kIdle;
          listener.OnInterleaved(m_frameHeader[0], payload, m_frameLength);
          break;
        }
        if (m_frame.capacity() < 65535) m_frame.reserve(65535);
        size_t take = std::min(available, m_frameLength - m_frame.size());
        m_frame.insert(m_frame.end(), data + pos, data + pos + take);
        pos += take;
        if (m_frame.size() == m_frameLength) {
          m_state = State::kIdle;
          listener.OnInterleaved(m_frameHeader[0], m_frame.data(), m_frame.size());
          m_frame.clear();
        }
        break;
      }

      case State::kHeader: {
        // Bytes up to the blank line that ends the header block.
        bool complete = false;
        while (pos < size && !complete) {
          char c = static_cast<char>(data[pos++]);
          if (!AcceptHeaderByte(c)) return false;
          size_t n = m_header.size();
          complete = c == '\n' &&
                     ((n >= 2 && m_header[n - 2] == '\n') || (n >= 4 && m_header.compare(n - 4, 4, "\r\n\r\n") == 0));
        }
        if (!complete) break;
        if (!ParseHeaderBlock()) return false;
        if (m_bodyLength == 0) {
          m_state = State::kIdle;
          listener.OnMessage(m_message);
        } else {
          m_message.body.reserve(m_bodyLength);
          m_state = State::kBody;
        }
        break;
      }

      case State::kBody: {
        size_t take = std::min(size - pos, m_bodyLength - m_message.body.size());
        m_message.body.append(reinterpret_cast<const char*>(data + pos), take);
        pos += take;
        if (m_message.body.size() == m_bodyLength) {
          m_state = State::kIdle;
          listener.OnMessage(m_message);
        }
        break;
      }
    }
  }
  return m_state != State::kFailed;
}

bool RtspStreamParser::AcceptHeaderByte(char c) {
  if (m_header.size() >= m_limits.maxHeaderBytes) {
    return Fail("RTSP header longer than " + std::to_string(m_limits.maxHeaderBytes) + " bytes");
  }
  if (m_inFirstToken) {
    if (c == ' ') {
      if (m_header.empty()) return Fail("RTSP message starts with a blank");
      m_inFirstToken = false;
    } else if (!IsStartTokenChar(c) || m_header.size() >= kMaxStartToken) {
      return Fail("not an RTSP message");
    }
  } else if (c == '\0') {
    return Fail("NUL byte in RTSP header");
  }
  m_header.push_back(c);
  return true;
}

bool RtspStreamParser::ParseHeaderBlock() {
  std::string_view block(m_header);
  size_t lineEnd = block.find('\n');
  std::string_view startLine = Trim(block.substr(0, lineEnd));
  block.remove_prefix(lineEnd + 1);

  size_t firstSpace = startLine.find(' ');
  std::string_view first = startLine.substr(0, firstSpace);
  std::string_view afterFirst = Trim(startLine.substr(firstSpace + 1));
  if (first.compare(0, 5, "RTSP/") == 0) {
    m_message.isResponse = true;
    std::string_view code = afterFirst.substr(0, afterFirst.find(' '));
    if (code.size() != 3 || !std::all_of(code.begin(), code.end(), [](char d) { return d >= '0' && d <= '9'; })) {
      return Fail("malformed RTSP status line");
    }
    m_message.statusCode = (code[0] - '0') * 100 + (code[1] - '0') * 10 + (code[2] - '0');
    if (m_message.statusCode < 100) return Fail("malformed RTSP status line");
    m_message.reason = std::string(Trim(afterFirst.substr(code.size())));
  } else {
    size_t uriEnd = afterFirst.find(' ');
    if (uriEnd == std::string_view::npos || Trim(afterFirst.substr(uriEnd)).compare(0, 5, "RTSP/") != 0) {
      return Fail("malformed RTSP request line");
    }
    m_message.isResponse = false;
    m_message.method = std::string(first);
    m_message.uri = std::string(afterFirst.substr(0, uriEnd));
  }

  m_bodyLength = 0;
  bool haveLength = false;
  while (!block.empty()) {
    lineEnd = block.find('\n');
    std::string_view line = block.substr(0, lineEnd);
    block.remove_prefix(lineEnd == std::string_view::npos ? block.size() : lineEnd + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty()) break;
    if (line.front() == ' ' || line.front() == '\t') {
      if (m_message.headers.empty()) return Fail("RTSP header continuation without a header");
      m_message.headers.back().value.append(" ").append(Trim(line));
      continue;
    }
    size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return Fail("malformed RTSP header line");
    m_message.headers.push_back({std::string(Trim(line.substr(0, colon))), std::string(Trim(line.substr(colon + 1)))});
  }
  if (const std::string* length = m_message.Find("Content-Length")) {
    haveLength = true;
    if (length->empty() || length->size() > 9 ||
        !std::all_of(length->begin(), length->end(), [](char d) { return d >= '0' && d <= '9'; })) {
      return Fail("malformed Content-Length");
    }
    m_bodyLength = static_cast<size_t>(std::stoul(*length));
  }
  if (haveLength && m_bodyLength > m_limits.maxBodyBytes) {
    return Fail("RTSP body of " + std::to_string(m_bodyLength) + " bytes exceeds the limit");
  }
  m_header.clear();
  return true;
}

}  // namespace mdclient
