#include "RtpTestPacketizer.h"

#include <algorithm>

namespace netcam_test {

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
    const bool h265 = codec == VideoCodec::kH265;
    const int type = h265 ? (nal[0] >> 1) & 0x3F : nal[0] & 0x1F;
    if (currentHasPicture) units.emplace_back();  // one slice per picture: whatever follows it starts the next
    units.back().nalUnits.push_back(nal);
    currentHasPicture = h265 ? type <= 31 : type >= 1 && type <= 5;
    if (h265 ? type >= 16 && type <= 21 : type == 5) units.back().keyFrame = true;
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

std::vector<Bytes> VideoRtpPacketizer::Packetize(const VideoAccessUnit& unit, uint32_t ticks) {
  const bool h265 = codec_ == VideoCodec::kH265;
  const size_t headerSize = h265 ? 2 : 1, donSize = options_.donFields ? 2 : 0;
  auto pushDon = [&](Bytes& payload, size_t size) {  // DONL (2 bytes) or DOND (1 byte, consecutive: 0)
    if (size == 2) payload.insert(payload.end(), {static_cast<uint8_t>(don_ >> 8), static_cast<uint8_t>(don_)});
    if (size == 1) payload.push_back(0);
  };
  std::vector<Bytes> payloads;
  const auto& nals = unit.nalUnits;
  for (size_t i = 0; i < nals.size();) {
    const Bytes& nal = nals[i];
    // A run of small NAL units that fit one aggregation packet (STAP-A / AP).
    size_t end = i, size = headerSize + donSize;
    while (options_.aggregate && end < nals.size() && size + 2 + nals[end].size() <= options_.maxPayload) {
      size += 2 + nals[end++].size() + (donSize ? 1 : 0);
    }
    Bytes payload;
    if (end - i >= 2) {
      uint8_t nri = 0;
      for (size_t k = i; k < end; ++k) nri = std::max<uint8_t>(nri, nals[k][0] & 0x60);
      payload = h265 ? Bytes{48 << 1, 1} : Bytes{static_cast<uint8_t>(nri | 24)};  // AP: layer 0, TID 1
      for (size_t k = i; k < end; ++k, ++don_) {
        pushDon(payload, k == i ? donSize : donSize / 2);
        payload.insert(payload.end(),
                       {static_cast<uint8_t>(nals[k].size() >> 8), static_cast<uint8_t>(nals[k].size())});
        payload.insert(payload.end(), nals[k].begin(), nals[k].end());
      }
      payloads.push_back(payload);
      i = end;
      continue;
    }
    if (nal.size() + donSize <= options_.maxPayload) {
      payload.assign(nal.begin(), nal.begin() + static_cast<long>(headerSize));
      pushDon(payload, donSize);
      payloads.push_back(payload);
      payloads.back().insert(payloads.back().end(), nal.begin() + static_cast<long>(headerSize), nal.end());
    }
    // FU-A / FU: the NAL header's type moves into the FU header, with start and end flags.
    const uint8_t type = static_cast<uint8_t>(h265 ? (nal[0] >> 1) & 0x3F : nal[0] & 0x1F);
    const size_t chunk = options_.maxPayload - headerSize - 1 - donSize;
    for (size_t offset = headerSize; payload.empty() && offset < nal.size(); offset += chunk) {
      const size_t n = std::min(chunk, nal.size() - offset);
      const uint8_t fu = type | (offset == headerSize ? 0x80 : 0) | (offset + n == nal.size() ? 0x40 : 0);
      Bytes fragment = h265 ? Bytes{static_cast<uint8_t>((nal[0] & 0x81) | (49 << 1)), nal[1], fu}
                            : Bytes{static_cast<uint8_t>((nal[0] & 0xE0) | 28), fu};
      if (offset == headerSize) pushDon(fragment, donSize);
      fragment.insert(fragment.end(), nal.begin() + static_cast<long>(offset),
                      nal.begin() + static_cast<long>(offset + n));
      payloads.push_back(fragment);
    }
    ++don_;
    ++i;
  }
  std::vector<Bytes> out;
  for (size_t k = 0; k < payloads.size(); ++k) {
    out.push_back(MakeRtpPacket(options_.payloadType, k + 1 == payloads.size(), sequence_++,
                                options_.firstTimestamp + ticks, options_.ssrc, payloads[k].data(),
                                payloads[k].size()));
  }
  return out;
}

std::vector<Bytes> AacRtpPacketizer::Packetize(const std::vector<Bytes>& units, uint32_t firstUnitTicks) {
  Bytes payload = {0, static_cast<uint8_t>(16 * units.size())};
  for (const Bytes& unit : units) {  // 13-bit size, 3-bit index (delta) 0
    payload.push_back(static_cast<uint8_t>(unit.size() >> 5));
    payload.push_back(static_cast<uint8_t>((unit.size() & 0x1F) << 3));
  }
  for (const Bytes& unit : units) payload.insert(payload.end(), unit.begin(), unit.end());
  const size_t step =
      units.size() == 1 && payload.size() > options_.maxPayload ? options_.maxPayload - 4 : payload.size();
  std::vector<Bytes> out;
  for (size_t offset = 4; offset < payload.size(); offset += step) {  // fragments repeat the unit's AU header
    Bytes fragment(payload.begin(), payload.begin() + 4);
    const size_t end = std::min(payload.size(), offset + step);
    fragment.insert(fragment.end(), payload.begin() + static_cast<long>(offset),
                    payload.begin() + static_cast<long>(end));
    out.push_back(MakeRtpPacket(options_.payloadType, end == payload.size(), sequence_++,
                                options_.firstTimestamp + firstUnitTicks, options_.ssrc, fragment.data(),
                                fragment.size()));
  }
  return out;
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

std::string VideoSdp(VideoCodec codec, const std::vector<Bytes>& parameterSets, bool donFields) {
  std::string fmtp = codec == VideoCodec::kH265 ? (donFields ? "sprop-max-don-diff=1; " : "") : "packetization-mode=1";
  if (codec == VideoCodec::kH265 && parameterSets.size() == 3) {
    fmtp += "sprop-vps=" + Base64(parameterSets[0]) + "; sprop-sps=" + Base64(parameterSets[1]) +
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
