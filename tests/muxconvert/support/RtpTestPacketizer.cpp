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

// NAL types that may only come before the first slice of a picture.
bool StartsNewUnitAfterPicture(VideoCodec codec, int type) {
  if (codec == VideoCodec::kH265)
    return type == 35 || (type >= 32 && type <= 34) || type == 39 || (type >= 41 && type <= 44);
  return type == 9 || type == 6 || type == 7 || type == 8 || (type >= 14 && type <= 18);
}

// first_mb_in_slice == 0 (H.264) / first_slice_segment_in_pic_flag (H.265).
bool FirstSliceOfPicture(VideoCodec codec, const Bytes& nal) {
  const size_t headerSize = codec == VideoCodec::kH265 ? 2 : 1;
  return nal.size() > headerSize && (nal[headerSize] & 0x80) != 0;
}

}  // namespace

std::vector<Bytes> SplitAnnexB(const Bytes& stream) {
  std::vector<Bytes> nals;
  size_t i = 0, start = std::string::npos;
  while (i + 3 <= stream.size()) {
    if (stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1) {
      if (start != std::string::npos) {
        size_t end = i;
        while (end > start && stream[end - 1] == 0) --end;  // trailing zeros belong to the next start code
        nals.emplace_back(stream.begin() + static_cast<long>(start), stream.begin() + static_cast<long>(end));
      }
      i += 3;
      start = i;
    } else {
      ++i;
    }
  }
  if (start != std::string::npos && start < stream.size()) {
    nals.emplace_back(stream.begin() + static_cast<long>(start), stream.end());
  }
  nals.erase(std::remove_if(nals.begin(), nals.end(), [](const Bytes& n) { return n.empty(); }), nals.end());
  return nals;
}

std::vector<VideoAccessUnit> GroupAccessUnits(VideoCodec codec, const std::vector<Bytes>& nalUnits) {
  std::vector<VideoAccessUnit> units;
  bool currentHasPicture = false;
  for (const Bytes& nal : nalUnits) {
    const int type = NalType(codec, nal);
    const bool vcl = IsVcl(codec, type);
    const bool newUnit =
        units.empty() ||
        (currentHasPicture && (StartsNewUnitAfterPicture(codec, type) || (vcl && FirstSliceOfPicture(codec, nal))));
    if (newUnit) {
      units.emplace_back();
      currentHasPicture = false;
    }
    units.back().nalUnits.push_back(nal);
    if (vcl) currentHasPicture = true;
    if (IsKey(codec, type)) units.back().keyFrame = true;
  }
  return units;
}

Bytes MakeRtpPacket(uint8_t payloadType, bool marker, uint16_t sequence, uint32_t timestamp, uint32_t ssrc,
                    const uint8_t* payload, size_t payloadSize) {
  Bytes packet(12 + payloadSize);
  packet[0] = 0x80;
  packet[1] = static_cast<uint8_t>((marker ? 0x80 : 0) | (payloadType & 0x7F));
  packet[2] = static_cast<uint8_t>(sequence >> 8);
  packet[3] = static_cast<uint8_t>(sequence);
  for (int i = 0; i < 4; ++i) {
    packet[4 + i] = static_cast<uint8_t>(timestamp >> (24 - 8 * i));
    packet[8 + i] = static_cast<uint8_t>(ssrc >> (24 - 8 * i));
  }
  std::copy(payload, payload + payloadSize, packet.begin() + 12);
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

AdtsStream ParseAdts(const Bytes& stream) {
  static const uint32_t kRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                      22050, 16000, 12000, 11025, 8000,  7350};
  AdtsStream result;
  size_t offset = 0;
  while (offset + 7 <= stream.size()) {
    const uint8_t* h = stream.data() + offset;
    if (h[0] != 0xFF || (h[1] & 0xF0) != 0xF0) return AdtsStream();
    const bool crc = (h[1] & 0x01) == 0;
    const int profile = h[2] >> 6, rateIndex = (h[2] >> 2) & 0x0F;
    const int channels = ((h[2] & 1) << 2) | (h[3] >> 6);
    const size_t frameLength = static_cast<size_t>(h[3] & 3) << 11 | static_cast<size_t>(h[4]) << 3 | h[5] >> 5;
    const size_t headerSize = crc ? 9 : 7;
    if (rateIndex > 12 || frameLength <= headerSize || offset + frameLength > stream.size()) return AdtsStream();
    if (result.accessUnits.empty()) {
      const int objectType = profile + 1;
      result.audioSpecificConfig = {static_cast<uint8_t>(objectType << 3 | rateIndex >> 1),
                                    static_cast<uint8_t>((rateIndex & 1) << 7 | channels << 3)};
      result.sampleRate = kRates[rateIndex];
      result.channels = channels;
    }
    result.accessUnits.emplace_back(h + headerSize, h + frameLength);
    offset += frameLength;
  }
  return result;
}

std::vector<Bytes> AacRtpPacketizer::Packetize(const std::vector<Bytes>& units, size_t unitsPerPacket,
                                               uint32_t firstUnitTicks) {
  std::vector<Bytes> out;
  const size_t maxData = options_.maxPayload - 4;
  for (size_t i = 0; i < units.size();) {
    const uint32_t timestamp = options_.firstTimestamp + firstUnitTicks + static_cast<uint32_t>(i) * 1024;
    if (units[i].size() > maxData) {  // fragments: one AU header with the full size each
      for (size_t offset = 0; offset < units[i].size(); offset += maxData) {
        const size_t size = std::min(maxData, units[i].size() - offset);
        Bytes payload = {0x00, 0x10, static_cast<uint8_t>(units[i].size() >> 5),
                         static_cast<uint8_t>((units[i].size() & 0x1F) << 3)};
        payload.insert(payload.end(), units[i].begin() + static_cast<long>(offset),
                       units[i].begin() + static_cast<long>(offset + size));
        const bool last = offset + size == units[i].size();
        out.push_back(MakeRtpPacket(options_.payloadType, last, sequence_++, timestamp, options_.ssrc, payload.data(),
                                    payload.size()));
      }
      ++i;
      continue;
    }
    size_t end = i, dataSize = 0;
    while (end < units.size() && end - i < unitsPerPacket &&
           2 + 2 * (end - i + 1) + dataSize + units[end].size() <= options_.maxPayload) {
      dataSize += units[end].size();
      ++end;
    }
    const size_t count = end - i;
    Bytes payload = {static_cast<uint8_t>((16 * count) >> 8), static_cast<uint8_t>(16 * count)};
    for (size_t k = i; k < end; ++k) {  // 13-bit size, 3-bit index (delta) 0
      payload.push_back(static_cast<uint8_t>(units[k].size() >> 5));
      payload.push_back(static_cast<uint8_t>((units[k].size() & 0x1F) << 3));
    }
    for (size_t k = i; k < end; ++k) payload.insert(payload.end(), units[k].begin(), units[k].end());
    out.push_back(MakeRtpPacket(options_.payloadType, true, sequence_++, timestamp, options_.ssrc, payload.data(),
                                payload.size()));
    i = end;
  }
  return out;
}

std::string Base64(const Bytes& data) {
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (size_t i = 0; i < data.size(); i += 3) {
    uint32_t chunk = static_cast<uint32_t>(data[i]) << 16;
    if (i + 1 < data.size()) chunk |= static_cast<uint32_t>(data[i + 1]) << 8;
    if (i + 2 < data.size()) chunk |= data[i + 2];
    out += kAlphabet[(chunk >> 18) & 63];
    out += kAlphabet[(chunk >> 12) & 63];
    out += i + 1 < data.size() ? kAlphabet[(chunk >> 6) & 63] : '=';
    out += i + 2 < data.size() ? kAlphabet[chunk & 63] : '=';
  }
  return out;
}

std::string Hex(const Bytes& data) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  for (uint8_t byte : data) {
    out += kDigits[byte >> 4];
    out += kDigits[byte & 15];
  }
  return out;
}

std::string SdpSessionHeader() {
  return "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=Session streamed with test packetizer\r\nc=IN IP4 0.0.0.0\r\n"
         "t=0 0\r\na=control:*\r\n";
}

std::string H264SdpMedia(uint8_t payloadType, const std::vector<Bytes>& parameterSets, int packetizationMode) {
  const std::string pt = std::to_string(payloadType);
  std::string sets;
  for (const Bytes& set : parameterSets) sets += (sets.empty() ? "" : ",") + Base64(set);
  return "m=video 0 RTP/AVP " + pt + "\r\na=rtpmap:" + pt + " H264/90000\r\na=fmtp:" + pt +
         " packetization-mode=" + std::to_string(packetizationMode) +
         (sets.empty() ? "" : "; sprop-parameter-sets=" + sets) + "\r\na=control:trackID=1\r\n";
}

std::string H265SdpMedia(uint8_t payloadType, const Bytes& vps, const Bytes& sps, const Bytes& pps) {
  const std::string pt = std::to_string(payloadType);
  return "m=video 0 RTP/AVP " + pt + "\r\na=rtpmap:" + pt + " H265/90000\r\na=fmtp:" + pt +
         " sprop-vps=" + Base64(vps) + "; sprop-sps=" + Base64(sps) + "; sprop-pps=" + Base64(pps) +
         "\r\na=control:trackID=1\r\n";
}

std::string AacSdpMedia(uint8_t payloadType, uint32_t sampleRate, int channels, const Bytes& config) {
  const std::string pt = std::to_string(payloadType);
  return "m=audio 0 RTP/AVP " + pt + "\r\na=rtpmap:" + pt + " mpeg4-generic/" + std::to_string(sampleRate) + "/" +
         std::to_string(channels) + "\r\na=fmtp:" + pt +
         " streamtype=5; profile-level-id=15; mode=AAC-hbr; config=" + Hex(config) +
         "; sizeLength=13; indexLength=3; indexDeltaLength=3\r\na=control:trackID=2\r\n";
}

}  // namespace netcam_test
