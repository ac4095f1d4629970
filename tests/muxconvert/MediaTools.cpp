#include "MediaTools.h"

namespace netcam_test {

void OutputCollector::OnUnit(const MUXC_OutputUnit* unit, void* user) {
  auto* self = static_cast<OutputCollector*>(user);
  (unit->type == MUXC_UNIT_HEADER ? self->headerUnits : self->payloadUnits)++;
  self->stream.insert(self->stream.end(), unit->data, unit->data + unit->length);
  if (self->keepUnits) self->units.emplace_back(unit->data, unit->data + unit->length);
  if (unit->type == MUXC_UNIT_PAYLOAD && self->onPayload) self->onPayload();
}

MUXC_HANDLE StartSession(const std::string& sdp, OutputCollector* collector) {
  MUXC_HANDLE handle = nullptr;
  MUXC_CreateParam param{MUXC_SOURCE_SDP, static_cast<int32_t>(sdp.size()), sdp.c_str(), MUXC_TARGET_PS, 0};
  if (MUXC_CreateEx(&handle, MUXC_MODE_DEFAULT, &param) != 0) return nullptr;
  MUXC_RegisterOutputDataCallBack(handle, &OutputCollector::OnUnit, collector);
  MUXC_Start(handle, 0, 0);
  return handle;
}

std::vector<PsPacket> ReadProgramStream(const Bytes& s, bool* ok) {
  std::vector<PsPacket> packets;
  *ok = false;
  auto ts = [&](size_t at) {
    return (static_cast<uint64_t>(s[at] & 0x0E) << 29) | (static_cast<uint64_t>(s[at + 1]) << 22) |
           (static_cast<uint64_t>(s[at + 2] & 0xFE) << 14) | (static_cast<uint64_t>(s[at + 3]) << 7) | (s[at + 4] >> 1);
  };
  for (size_t i = 0, end = 0; i < s.size(); i = end) {
    if (i + 6 > s.size() || s[i] != 0 || s[i + 1] != 0 || s[i + 2] != 1) return packets;
    PsPacket p{s[i + 3]};
    const bool pack = p.startCode == 0xBA, pes = p.startCode == 0xE0 || p.startCode == 0xC0;
    if (pack && (i + 14 > s.size() || (s[i + 4] & 0xC0) != 0x40)) return packets;  // MPEG-2 pack header
    end = pack ? i + 14 + (s[i + 13] & 7) : i + 6 + (static_cast<size_t>(s[i + 4]) << 8 | s[i + 5]);
    if (end > s.size() || (pes && (end < i + 9 || i + 9 + s[i + 8] > end))) return packets;
    if (pes) {
      p.hasPts = (s[i + 7] & 0x80) != 0;
      p.hasDts = (s[i + 7] & 0x40) != 0;
      p.pts = p.hasPts ? ts(i + 9) : 0;
      p.dts = p.hasDts ? ts(i + 14) : 0;
    }
    p.body.assign(s.begin() + static_cast<long>(pes ? i + 9 + s[i + 8] : i), s.begin() + static_cast<long>(end));
    packets.push_back(std::move(p));
  }
  *ok = true;
  return packets;
}

}  // namespace netcam_test
