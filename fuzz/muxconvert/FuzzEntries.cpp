#include "FuzzEntries.h"

#include <string>
#include <vector>

#include "MuxConvert.h"
#include "SdpParser.h"

namespace muxc_fuzz {
namespace {

const char* const kSdps[] = {
    // H.264 with in-SDP sets, and AAC-hbr
    "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\n"
    "a=fmtp:96 packetization-mode=1;sprop-parameter-sets=Z0LAHtkAoEf+yA==,aM48gA==\r\n"
    "m=audio 0 RTP/AVP 97\r\na=rtpmap:97 mpeg4-generic/16000/1\r\n"
    "a=fmtp:97 mode=AAC-hbr;config=1408;sizelength=13;indexlength=3;indexdeltalength=3\r\n",
    // H.265 with DONL fields
    "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H265/90000\r\n"
    "a=fmtp:96 sprop-max-don-diff=1;sprop-vps=QAEMAf//AWAAAAMAAAMA;sprop-sps=QgEBAWAAAAMAAAMAAAMAAAMAXaAFAgPB;"
    "sprop-pps=RAHAcvAbJA==\r\n",
    // H.265 plain, and AAC with every optional AU-header field and auxiliary data
    "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H265/90000\r\n"
    "m=audio 0 RTP/AVP 97\r\na=rtpmap:97 mpeg4-generic/44100/2\r\n"
    "a=fmtp:97 config=1210;sizelength=13;indexlength=3;indexdeltalength=3;ctsdeltalength=4;dtsdeltalength=4;"
    "randomaccessindication=1;streamstateindication=2;auxiliarydatasizelength=8\r\n",
    // audio only (AAC-lbr), so audio flows without waiting for a picture
    "m=audio 0 RTP/AVP 97\r\na=rtpmap:97 mpeg4-generic/8000/1\r\n"
    "a=fmtp:97 config=1588;sizelength=6;indexlength=2;indexdeltalength=2\r\n"
    "m=audio 0 RTP/AVP 0\r\n",
};
constexpr size_t kSdpCount = sizeof(kSdps) / sizeof(kSdps[0]);
constexpr uint8_t kPayloadTypes[4] = {96, 97, 0, 98};

void ConsumeUnit(const MUXC_OutputUnit* unit, void* user) {
  // Touch every byte so out-of-bounds output is caught by the sanitizers.
  auto* sum = static_cast<uint32_t*>(user);
  for (int32_t i = 0; i < unit->length; ++i) *sum += unit->data[i];
}

void ConsumeTime(const MUXC_GlobalTime* time, void* user) { *static_cast<uint32_t*>(user) += time->millisecond; }

struct HandleGuard {
  MUXC_HANDLE handle = nullptr;
  ~HandleGuard() {
    if (handle != nullptr) MUXC_Release(handle);
  }
};

}  // namespace

int FuzzSdpParser(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  muxc::SdpDescription description;
  muxc::ParseSdp(text, &description);
  if (size > static_cast<size_t>(INT32_MAX)) return 0;
  HandleGuard guard;
  MUXC_CreateParam param{MUXC_SOURCE_SDP, static_cast<int32_t>(size), reinterpret_cast<const char*>(data),
                         MUXC_TARGET_PS, 0};
  uint32_t sum = 0;
  if (MUXC_CreateEx(&guard.handle, MUXC_MODE_DEFAULT, &param) == 0) {
    MUXC_RegisterOutputDataCallBack(guard.handle, &ConsumeUnit, &sum);
    MUXC_Start(guard.handle, 0, 0);
  }
  return 0;
}

int FuzzRepackager(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const char* sdp = kSdps[data[0] % kSdpCount];
  const uint8_t options = data[1];
  data += 2;
  size -= 2;

  HandleGuard guard;
  MUXC_CreateParam param{MUXC_SOURCE_SDP, static_cast<int32_t>(std::char_traits<char>::length(sdp)), sdp,
                         MUXC_TARGET_PS, 0};
  if (MUXC_CreateEx(&guard.handle, MUXC_MODE_DEFAULT, &param) != 0) return 0;
  uint32_t sum = 0;
  MUXC_RegisterOutputDataCallBack(guard.handle, &ConsumeUnit, &sum);
  MUXC_RegisterModifyGlobalTimeCallBack(guard.handle, &ConsumeTime, &sum);
  MUXC_GlobalTime start{2023, 12, 31, 23, 59, 59, 999, (options & 1) ? 1 : 0};
  MUXC_SetGlobalTime(guard.handle, &start);
  MUXC_Start(guard.handle, 0, 0);

  uint16_t sequence = 0xFFF0;
  uint32_t timestamp = 0xFFFFF000u;
  std::vector<uint8_t> packet;
  while (size >= 3) {
    size_t length = static_cast<size_t>(data[0]) << 8 | data[1];
    data += 2;
    size -= 2;
    if (length == 0 || length > size) length = size;
    const uint8_t control = data[0];
    if (control & 0x80) {
      if (length > 1) MUXC_InputData(guard.handle, 0, data + 1, static_cast<int32_t>(length - 1));
    } else {
      // control: bit 6 marker, bits 4-5 payload type, bits 2-3 sequence step, bits 0-1 timestamp step
      sequence = static_cast<uint16_t>(sequence + ((control >> 2) & 3));
      static const uint32_t kTimestampSteps[4] = {0, 3600, 1024, 0x7FFFFFFF};
      timestamp += kTimestampSteps[control & 3];
      packet.assign({0x80, static_cast<uint8_t>((control & 0x40 ? 0x80 : 0) | kPayloadTypes[(control >> 4) & 3]),
                     static_cast<uint8_t>(sequence >> 8), static_cast<uint8_t>(sequence),
                     static_cast<uint8_t>(timestamp >> 24), static_cast<uint8_t>(timestamp >> 16),
                     static_cast<uint8_t>(timestamp >> 8), static_cast<uint8_t>(timestamp), 0, 0, 0, 1});
      packet.insert(packet.end(), data + 1, data + length);
      MUXC_InputData(guard.handle, 0, packet.data(), static_cast<int32_t>(packet.size()));
    }
    data += length;
    size -= length;
  }
  if (options & 2) MUXC_Stop(guard.handle);
  return 0;
}

}  // namespace muxc_fuzz
