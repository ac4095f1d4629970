#include "RtpTestPacketizer.h"

#include <algorithm>

namespace netcam_test {
namespace {

int NalType(VideoCodec codec, const Bytes& nal) {
  if (nal.empty()) return -1;
  return codec == VideoCodec::kH265 ? (nal[0] >> 1) & 0x3F : nal[0] & 0x1F;
}

bool IsVcl(VideoCodec codec, int type) {
  return codec == VideoCodec::kH265 ? type >= 0 && type <= 31 : type >= 1 && type <= 5;
}

bool IsKey(VideoCodec codec, int type) { return codec == VideoCodec::kH265 ? type >= 16 && type <= 21 : type == 5; }

}  // namespace

std::vector<Bytes> SplitAnnexB(const Bytes& s) {
  std::vector<Bytes> nals;
  size_t start = 0;  // 0: before the first start code
  for (size_t i = 0; i + 3 <= s.size(); ++i) {
    if (s[i] != 0 || s[i + 1] != 0 || s[i + 2] != 1) continue;
    // The zero in front of a four-byte start code is not part of the NAL unit before it.
    if (start > 0)
      nals.emplace_back(s.begin() + static_cast<long>(start), s.begin() + static_cast<long>(s[i - 1] == 0 ? i - 1 : i));
    start = i + 3;
  }
  if (start > 0 && start < s.size()) nals.emplace_back(s.begin() + static_cast<long>(start), s.end());
  return nals;
}

std::vector<VideoAccessUnit> GroupAccessUnits(VideoCodec codec, const std::vector<Bytes>& nalUnits) {
  std::vector<VideoAccessUnit> units;
  bool currentHasPicture = true;
  for (const Bytes& nal : nalUnits) {
    const int type = NalType(codec, nal);
    if (currentHasPicture) units.emplace_back();  // one slice per picture: whatever follows it starts the next
    units.back().nalUnits.push_back(nal);
    currentHasPicture = IsVcl(codec, type);
    if (IsKey(codec, type)) units.back().keyFrame = true;
  }
  return units;
}

Bytes MakeRtpPacket(uint8_t payloadType, bool marker, uint16_t sequence, uint32_t timestamp, uint32_t ssrc,
                    const uint8_t* payload, size_t payloadSize) {
  Bytes packet = {0x80, static_cast<uint8_t>((marker ? 0x80 : 0) | (payloadType & 0x7F)),
                  static_cast<uint8_t>(sequence >> 8), static_cast<uint8_t>(sequence)};
  for (uint32_t word : {timestamp, ssrc}) {
    for (int shift = 24; shift >= 0; shift -= 8) packet.push_back(static_cast<uint8_t>(word >> shift));
  }
  packet.insert(packet.end(), payload, payload + payloadSize);
  return packet;
}

void VideoRtpPacketizer::AddPacket(std::vector<Bytes>& out, const Bytes& payload, uint32_t timestamp) {
  out.push_back(MakeRtpPacket(options_.payloadType, false, sequence_++, timestamp, options_.ssrc, payload.data(),
                              payload.size()));
}

void VideoRtpPacketizer::Fragment(std::vector<Bytes>& out, const Bytes& nal, uint32_t timestamp) {
  const size_t headerSize = codec_ == VideoCodec::kH265 ? 2 : 1;
  const size_t fuOverhead = headerSize + 1;
  const size_t chunkSize = options_.maxPayload - fuOverhead;
  const int type = NalType(codec_, nal);
  for (size_t offset = headerSize; offset < nal.size(); offset += chunkSize) {
    const size_t size = std::min(chunkSize, nal.size() - offset);
    Bytes payload;
    uint8_t fuHeader = static_cast<uint8_t>(type);
    if (offset == headerSize) fuHeader |= 0x80;
    if (offset + size == nal.size()) fuHeader |= 0x40;
    if (codec_ == VideoCodec::kH265) {
      payload = {static_cast<uint8_t>((nal[0] & 0x81) | (49 << 1)), nal[1], fuHeader};
    } else {
      payload = {static_cast<uint8_t>((nal[0] & 0xE0) | 28), fuHeader};
    }
    payload.insert(payload.end(), nal.begin() + static_cast<long>(offset),
                   nal.begin() + static_cast<long>(offset + size));
    AddPacket(out, payload, timestamp);
  }
}

std::vector<Bytes> VideoRtpPacketizer::Packetize(const VideoAccessUnit& unit, uint32_t ticks) {
  const uint32_t timestamp = options_.firstTimestamp + ticks;
  const size_t aggregateHeader = codec_ == VideoCodec::kH265 ? 2 : 1;
  std::vector<Bytes> out;
  const auto& nals = unit.nalUnits;
  for (size_t i = 0; i < nals.size();) {
    const Bytes& nal = nals[i];
    if (nal.size() > options_.maxPayload) {
      Fragment(out, nal, timestamp);
      ++i;
      continue;
    }
    // Gather a run of NAL units that fit one aggregation packet.
    size_t end = i, size = aggregateHeader;
    while (options_.aggregate && end < nals.size() && size + 2 + nals[end].size() <= options_.maxPayload) {
      size += 2 + nals[end].size();
      ++end;
    }
    if (end - i < 2) {
      AddPacket(out, nal, timestamp);
      ++i;
      continue;
    }
    Bytes payload;
    if (codec_ == VideoCodec::kH265) {
      payload = {static_cast<uint8_t>(48 << 1), 1};  // AP, layer 0, TID 1
    } else {
      uint8_t nri = 0;
      for (size_t k = i; k < end; ++k) nri = std::max<uint8_t>(nri, nals[k][0] & 0x60);
      payload = {static_cast<uint8_t>(nri | 24)};
    }
    for (size_t k = i; k < end; ++k) {
      payload.push_back(static_cast<uint8_t>(nals[k].size() >> 8));
      payload.push_back(static_cast<uint8_t>(nals[k].size()));
      payload.insert(payload.end(), nals[k].begin(), nals[k].end());
    }
    AddPacket(out, payload, timestamp);
    i = end;
  }
  if (!out.empty()) out.back()[1] |= 0x80;
  return out;
}

Bytes AacRtpPacketizer::Packetize(const std::vector<Bytes>& units, uint32_t firstUnitTicks) {
  Bytes payload = {0, static_cast<uint8_t>(16 * units.size())};
  for (const Bytes& unit : units) {  // 13-bit size, 3-bit index (delta) 0
    payload.push_back(static_cast<uint8_t>(unit.size() >> 5));
    payload.push_back(static_cast<uint8_t>((unit.size() & 0x1F) << 3));
  }
  for (const Bytes& unit : units) payload.insert(payload.end(), unit.begin(), unit.end());
  return MakeRtpPacket(options_.payloadType, true, sequence_++, options_.firstTimestamp + firstUnitTicks, options_.ssrc,
                       payload.data(), payload.size());
}

std::string Base64(const Bytes& data) {
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (size_t i = 0; i < data.size(); i += 3) {
    const uint32_t chunk =
        data[i] << 16 | (i + 1 < data.size() ? data[i + 1] << 8 : 0) | (i + 2 < data.size() ? data[i + 2] : 0);
    for (size_t k = 0; k < 4; ++k)
      out += k < 2 || i + k - 1 < data.size() ? kAlphabet[(chunk >> (18 - 6 * k)) & 63] : '=';
  }
  return out;
}

std::string VideoSdp(VideoCodec codec, const std::vector<Bytes>& parameterSets) {
  std::string fmtp = codec == VideoCodec::kH265 ? "" : "packetization-mode=1";
  if (codec == VideoCodec::kH265 && parameterSets.size() == 3) {
    fmtp = "sprop-vps=" + Base64(parameterSets[0]) + "; sprop-sps=" + Base64(parameterSets[1]) +
           "; sprop-pps=" + Base64(parameterSets[2]);
  } else if (codec == VideoCodec::kH264 && !parameterSets.empty()) {
    fmtp += "; sprop-parameter-sets=" + Base64(parameterSets[0]);
    for (size_t i = 1; i < parameterSets.size(); ++i) fmtp += "," + Base64(parameterSets[i]);
  }
  return "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=Session streamed with test packetizer\r\nc=IN IP4 0.0.0.0\r\n"
         "t=0 0\r\na=control:*\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 " +
         std::string(codec == VideoCodec::kH265 ? "H265" : "H264") + "/90000\r\na=fmtp:96 " + fmtp +
         "\r\na=control:trackID=1\r\n";
}

}  // namespace netcam_test
