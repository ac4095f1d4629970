#include "MediaLoop.h"

#include <algorithm>

namespace camsim {

namespace {

constexpr double kVideoClockRate = 90000.0;  // RTP video clock; what the cameras send

bool IsRtp(const std::string& bytes) { return bytes.size() >= 4 + 12 && (static_cast<uint8_t>(bytes[4]) >> 6) == 2; }
uint16_t Seq(const std::string& b) {
  return static_cast<uint16_t>((static_cast<uint8_t>(b[6]) << 8) | static_cast<uint8_t>(b[7]));
}
uint32_t Time(const std::string& b) {
  return (static_cast<uint32_t>(static_cast<uint8_t>(b[8])) << 24) |
         (static_cast<uint32_t>(static_cast<uint8_t>(b[9])) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(b[10])) << 8) | static_cast<uint8_t>(b[11]);
}

// An RTCP compound packet (after the 4-byte interleaved header) with a BYE in it.
bool HasBye(const std::string& frame) {
  for (size_t at = 4; at + 4 <= frame.size();) {
    if (static_cast<uint8_t>(frame[at + 1]) == 203) return true;
    at +=
        4 * ((static_cast<size_t>(static_cast<uint8_t>(frame[at + 2])) << 8 | static_cast<uint8_t>(frame[at + 3])) + 1);
  }
  return false;
}

}  // namespace

MediaLoop::MediaLoop(const std::string& media, bool loop) : m_loop(loop) {
  size_t at = 0;
  bool hasBye = false;
  while (at + 4 <= media.size() && media[at] == '$') {
    const size_t length = (static_cast<uint8_t>(media[at + 2]) << 8) | static_cast<uint8_t>(media[at + 3]);
    if (at + 4 + length > media.size()) break;  // a capture cut in a frame keeps the frames before it
    Frame frame{static_cast<uint8_t>(media[at + 1]), media.substr(at, 4 + length), 0, false};
    at += 4 + length;
    frame.rtp = frame.channel % 2 == 0 && IsRtp(frame.bytes);
    if (!frame.rtp) {
      hasBye = hasBye || HasBye(frame.bytes);
      // The camera's RTCP goes where it came (a BYE ends a recording played back).
      frame.at = m_frames.empty() ? 0 : m_frames.back().at;
      m_frames.push_back(std::move(frame));
      continue;
    }
    Channel& channel = m_channels[frame.channel];
    const uint16_t seq = Seq(frame.bytes);
    const uint32_t time = Time(frame.bytes);
    if (!channel.seen) {
      channel.seen = true;
      channel.firstSeq = seq;
      channel.firstTime = time;
    } else if (time != channel.lastTime && (channel.step == 0 || time - channel.lastTime < channel.step)) {
      channel.step = time - channel.lastTime;
    }
    channel.lastSeq = seq;
    channel.lastTime = time;
    // Signed: pictures sent out of presentation order may stamp before the first.
    frame.at = std::max(0.0, static_cast<int32_t>(time - channel.firstTime) / kVideoClockRate);
    m_frames.push_back(std::move(frame));
  }
  for (const Frame& frame : m_frames) {
    if (frame.at > m_length) m_length = frame.at;
  }
  if (m_loop && m_channels.empty()) m_frames.clear();  // nothing that could be looped
  if (!m_loop && !hasBye && !m_channels.empty()) {
    // A capture cut before the camera ended the recording: end it as the camera would have.
    const uint8_t channel = m_channels.begin()->first;
    const std::string& last =
        std::find_if(m_frames.rbegin(), m_frames.rend(), [](const Frame& f) { return f.rtp; })->bytes;
    std::string bye = {'$', static_cast<char>(channel + 1), 0, 8, static_cast<char>(0x81), static_cast<char>(203), 0,
                       1};
    bye += last.substr(4 + 8, 4);  // the stream's SSRC
    m_frames.push_back(Frame{static_cast<uint8_t>(channel + 1), bye, m_frames.back().at, false});
  }
  // One picture's time after the last, the first comes again.
  uint32_t step = 3000;
  if (!m_channels.empty() && m_channels.begin()->second.step != 0) step = m_channels.begin()->second.step;
  m_length += step / kVideoClockRate;
}

bool MediaLoop::Next(std::string* frame, double* dueSeconds) {
  const Frame* next = nullptr;
  while (next == nullptr) {
    if (m_frames.empty()) return false;
    if (m_next == m_frames.size()) {
      if (!m_loop) return false;
      m_next = 0;
      ++m_pass;
    }
    next = &m_frames[m_next++];
    // Looped, the reports would speak of times the stream has left behind.
    if (m_loop && !next->rtp) next = nullptr;
  }
  const Frame& source = *next;
  *frame = source.bytes;
  *dueSeconds = source.at + static_cast<double>(m_pass) * m_length;
  if (m_pass == 0) return true;
  // Later passes go on from where the one before ended.
  const Channel& channel = m_channels.at(source.channel);
  const uint16_t seq =
      static_cast<uint16_t>(Seq(source.bytes) + m_pass * static_cast<uint16_t>(channel.lastSeq - channel.firstSeq + 1));
  const uint32_t span = channel.lastTime - channel.firstTime + (channel.step != 0 ? channel.step : 3000);
  const uint32_t time = Time(source.bytes) + static_cast<uint32_t>(m_pass * span);
  (*frame)[6] = static_cast<char>(seq >> 8);
  (*frame)[7] = static_cast<char>(seq & 0xff);
  for (int i = 0; i < 4; ++i) (*frame)[8 + i] = static_cast<char>((time >> (24 - 8 * i)) & 0xff);
  return true;
}

}  // namespace camsim
