#include "RtspFraming.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace camsim {
namespace {

// A head longer than this is not RTSP: it ends where the limit is reached.
constexpr size_t kMaxHead = 64 * 1024;

// The value of a header, found case-insensitively in a message head; "" when absent.
std::string HeaderValue(const std::string& head, const std::string& lowerName) {
  for (size_t line = head.find('\n'); line != std::string::npos; line = head.find('\n', line + 1)) {
    const size_t start = line + 1;
    if (head.size() - start <= lowerName.size() || head[start + lowerName.size()] != ':') continue;
    bool same = true;
    for (size_t i = 0; i < lowerName.size() && same; ++i) {
      same = std::tolower(static_cast<unsigned char>(head[start + i])) == lowerName[i];
    }
    if (!same) continue;
    const size_t value = head.find_first_not_of(" \t", start + lowerName.size() + 1);
    const size_t end = head.find_first_of("\r\n", start);
    if (value == std::string::npos || value >= end) return "";
    return head.substr(value, end - value);
  }
  return "";
}

}  // namespace

StreamPiece StreamFramer::Next(const char* data, size_t size) {
  StreamPiece piece;
  if (m_state == State::Between) {
    piece.starts = true;
    m_headerFill = 0;
    m_head.clear();
    m_state = data[0] == '$' ? State::FrameHeader : State::MessageHead;
  }
  switch (m_state) {
    case State::FrameHeader: {
      piece.frame = true;
      if (piece.starts && size >= 4) {
        // The whole header in view: the frame's size is known from its start.
        const size_t payload =
            (static_cast<size_t>(static_cast<uint8_t>(data[2])) << 8) | static_cast<uint8_t>(data[3]);
        piece.unitLength = 4 + payload;
        piece.length = std::min(size, piece.unitLength);
        m_left = piece.unitLength - piece.length;
        m_state = m_left == 0 ? State::Between : State::FrameBody;
        piece.ends = m_left == 0;
        return piece;
      }
      while (piece.length < size && m_headerFill < 4)
        m_header[m_headerFill++] = static_cast<uint8_t>(data[piece.length++]);
      if (m_headerFill == 4) {
        m_left = (static_cast<size_t>(m_header[2]) << 8) | m_header[3];
        m_state = m_left == 0 ? State::Between : State::FrameBody;
        piece.ends = m_left == 0;
      }
      return piece;
    }
    case State::FrameBody:
    case State::MessageBody:
      piece.frame = m_state == State::FrameBody;
      piece.length = std::min(size, m_left);
      m_left -= piece.length;
      if (m_left == 0) {
        m_state = State::Between;
        piece.ends = true;
      }
      return piece;
    case State::MessageHead: {
      bool complete = false;
      while (piece.length < size && !complete) {
        m_head.push_back(data[piece.length++]);
        const size_t n = m_head.size();
        complete = (n >= 4 && m_head.compare(n - 4, 4, "\r\n\r\n") == 0) ||
                   (n >= 2 && m_head.compare(n - 2, 2, "\n\n") == 0) || n >= kMaxHead;
      }
      if (!complete) return piece;
      m_left = std::strtoul(HeaderValue(m_head, "content-length").c_str(), nullptr, 10);
      m_state = m_left == 0 ? State::Between : State::MessageBody;
      piece.ends = m_left == 0;
      return piece;
    }
    case State::Between:
      break;
  }
  return piece;
}

std::string RequestPath(const std::string& request) {
  const size_t space = request.find(' ');
  if (space == std::string::npos) return "";
  size_t start = request.find("://", space);
  const size_t lineEnd = request.find_first_of(" \r\n", space + 1);
  if (start == std::string::npos || start > lineEnd) return "";
  start = request.find('/', start + 3);
  if (start == std::string::npos || start > lineEnd) return "/";
  const size_t end = request.find_first_of("? \r\n", start);
  return request.substr(start, end - start);
}

int RequestCSeq(const std::string& request) {
  const std::string value = HeaderValue(request, "cseq");
  return value.empty() ? -1 : std::atoi(value.c_str());
}

}  // namespace camsim
