#include "VideoDepacketizer.h"

namespace muxc {
namespace {

constexpr uint8_t kStartCode[4] = {0, 0, 0, 1};
// Bounds what a hostile stream can make us keep per parameter set kind.
constexpr size_t kMaxStoredParameterBytes = 16 * 1024;  // three kinds still fit one PES

inline size_t ReadU16(const uint8_t* p) { return static_cast<size_t>(p[0]) << 8 | p[1]; }

int NalType(Codec codec, const uint8_t* nal) { return codec == Codec::kH265 ? (nal[0] >> 1) & 0x3F : nal[0] & 0x1F; }

// Parameter set kind of a NAL type, or -1.
int ParameterSetKind(Codec codec, int type) {
  if (codec == Codec::kH265) {
    if (type == 32) return ParameterSets::kVps;
    if (type == 33) return ParameterSets::kSps;
    if (type == 34) return ParameterSets::kPps;
    return -1;
  }
  if (type == 7) return ParameterSets::kSps;
  if (type == 8) return ParameterSets::kPps;
  return -1;
}

}  // namespace

void ParameterSets::Seed(const std::vector<std::vector<uint8_t>>& sets) {
  BeginAccessUnit();
  const size_t minimum = codec_ == Codec::kH265 ? 2 : 1;
  for (const auto& set : sets) {
    if (set.size() < minimum) continue;
    const int kind = ParameterSetKind(codec_, NalType(codec_, set.data()));
    if (kind >= 0) Store(static_cast<Kind>(kind), set.data(), set.size());
  }
  BeginAccessUnit();
}

void ParameterSets::BeginAccessUnit() {
  for (bool& replaced : replacedInUnit_) replaced = false;
}

void ParameterSets::Store(Kind kind, const uint8_t* nal, size_t size) {
  std::vector<uint8_t>& set = sets_[kind];
  if (!replacedInUnit_[kind]) {
    set.clear();
    replacedInUnit_[kind] = true;
  }
  if (set.size() + sizeof(kStartCode) + size > kMaxStoredParameterBytes) return;
  set.insert(set.end(), kStartCode, kStartCode + sizeof(kStartCode));
  set.insert(set.end(), nal, nal + size);
}

bool ParameterSets::Complete() const {
  return !sets_[kSps].empty() && !sets_[kPps].empty() && (codec_ != Codec::kH265 || !sets_[kVps].empty());
}

bool ParameterSets::CarriedBy(const AccessUnitFlags& flags) const {
  return flags.sps && flags.pps && (codec_ != Codec::kH265 || flags.vps);
}

uint8_t* ParameterSets::CopyAnnexB(uint8_t* out) const {
  for (const auto& set : sets_) {
    if (set.empty()) continue;
    std::memcpy(out, set.data(), set.size());
    out += set.size();
  }
  return out;
}

void VideoDepacketizer::BeginAccessUnit() {
  flags_ = AccessUnitFlags();
  fragmentOpen_ = false;
  parameterSets_.BeginAccessUnit();
}

DepacketizeResult VideoDepacketizer::Push(const uint8_t* payload, size_t size, PesAssembler& out, const char** reason) {
  return codec_ == Codec::kH265 ? PushH265(payload, size, out, reason) : PushH264(payload, size, out, reason);
}

void VideoDepacketizer::NoteNalType(int type) {
  if (codec_ == Codec::kH265) {
    if (type <= 31) flags_.vcl = true;
    if (type >= 16 && type <= 23) flags_.keyFrame = true;
    if (type == 32) flags_.vps = true;
  } else {
    if (type >= 1 && type <= 5) flags_.vcl = true;
    if (type == 5) flags_.keyFrame = true;
  }
  const int kind = ParameterSetKind(codec_, type);
  if (kind == ParameterSets::kSps) flags_.sps = true;
  if (kind == ParameterSets::kPps) flags_.pps = true;
}

void VideoDepacketizer::NoteCompleteNal(int type, const uint8_t* nal, size_t size) {
  NoteNalType(type);
  const int kind = ParameterSetKind(codec_, type);
  if (kind >= 0) parameterSets_.Store(static_cast<ParameterSets::Kind>(kind), nal, size);
}

void VideoDepacketizer::WriteNal(const uint8_t* header, size_t headerSize, const uint8_t* body, size_t bodySize,
                                 PesAssembler& out) {
  out.Append(kStartCode, sizeof(kStartCode));
  out.Append(header, headerSize);
  if (bodySize > 0) out.Append(body, bodySize);
}

void VideoDepacketizer::BeginFragment(int type, const uint8_t* header, size_t headerSize, const uint8_t* body,
                                      size_t bodySize, PesAssembler& out) {
  fragmentOpen_ = true;
  fragmentType_ = type;
  NoteNalType(type);
  WriteNal(header, headerSize, body, bodySize, out);
  if (ParameterSetKind(codec_, type) >= 0) {
    fragmentCopyOverflow_ = false;
    fragmentCopy_.assign(header, header + headerSize);
    fragmentCopy_.insert(fragmentCopy_.end(), body, body + bodySize);
  }
}

void VideoDepacketizer::ContinueFragment(const uint8_t* body, size_t bodySize, bool end, PesAssembler& out) {
  out.Append(body, bodySize);
  const int kind = ParameterSetKind(codec_, fragmentType_);
  if (kind < 0) {
    if (end) fragmentOpen_ = false;
    return;
  }
  // An oversized set is not kept.
  if (fragmentCopy_.size() + bodySize > kMaxStoredParameterBytes) fragmentCopyOverflow_ = true;
  if (!fragmentCopyOverflow_) fragmentCopy_.insert(fragmentCopy_.end(), body, body + bodySize);
  if (end) {
    fragmentOpen_ = false;
    if (!fragmentCopyOverflow_) {
      parameterSets_.Store(static_cast<ParameterSets::Kind>(kind), fragmentCopy_.data(), fragmentCopy_.size());
    }
  }
}

DepacketizeResult VideoDepacketizer::PushH264(const uint8_t* p, size_t size, PesAssembler& out, const char** reason) {
  if (size < 1) {
    *reason = "empty H.264 payload";
    return DepacketizeResult::kMalformed;
  }
  const int type = p[0] & 0x1F;
  if (type >= 1 && type <= 23) {
    if (fragmentOpen_) {
      *reason = "H.264 NAL unit inside an unfinished FU-A";
      return DepacketizeResult::kMalformed;
    }
    WriteNal(p, size, nullptr, 0, out);
    NoteCompleteNal(type, p, size);
    return DepacketizeResult::kOk;
  }
  if (type == 24) {  // STAP-A: 16-bit size, NAL unit, repeated
    if (fragmentOpen_ || size < 4) {
      *reason = fragmentOpen_ ? "H.264 STAP-A inside an unfinished FU-A" : "H.264 STAP-A too short";
      return DepacketizeResult::kMalformed;
    }
    for (size_t offset = 1; offset < size;) {
      const size_t nalSize = offset + 2 <= size ? ReadU16(p + offset) : 0;
      offset += 2;
      if (nalSize == 0 || nalSize > size - offset) {
        *reason = "H.264 STAP-A NAL unit size beyond the packet";
        return DepacketizeResult::kMalformed;
      }
      WriteNal(p + offset, nalSize, nullptr, 0, out);
      NoteCompleteNal(p[offset] & 0x1F, p + offset, nalSize);
      offset += nalSize;
    }
    return DepacketizeResult::kOk;
  }
  if (type == 28) {  // FU-A: indicator, header (S E R type), fragment
    if (size < 3) {
      *reason = "H.264 FU-A too short";
      return DepacketizeResult::kMalformed;
    }
    const bool start = (p[1] & 0x80) != 0, end = (p[1] & 0x40) != 0;
    const int fragmentType = p[1] & 0x1F;
    if ((start && end) || fragmentType == 0 || fragmentType > 23) {
      *reason = "H.264 FU-A header invalid";
      return DepacketizeResult::kMalformed;
    }
    if (start) {
      if (fragmentOpen_) {
        *reason = "H.264 FU-A start inside an unfinished FU-A";
        return DepacketizeResult::kMalformed;
      }
      const uint8_t header = static_cast<uint8_t>((p[0] & 0xE0) | fragmentType);
      BeginFragment(fragmentType, &header, 1, p + 2, size - 2, out);
      return DepacketizeResult::kOk;
    }
    if (!fragmentOpen_ || fragmentType != fragmentType_) {
      *reason = "H.264 FU-A fragment without its start";
      return DepacketizeResult::kMalformed;
    }
    ContinueFragment(p + 2, size - 2, end, out);
    return DepacketizeResult::kOk;
  }
  *reason = "unsupported H.264 NAL unit type (interleaved or reserved)";
  return DepacketizeResult::kMalformed;
}

DepacketizeResult VideoDepacketizer::PushH265(const uint8_t* p, size_t size, PesAssembler& out, const char** reason) {
  if (size < 3 || (p[1] & 0x07) == 0) {
    *reason = size < 3 ? "H.265 payload too short" : "H.265 payload header with TID 0";
    return DepacketizeResult::kMalformed;
  }
  const int type = (p[0] >> 1) & 0x3F;
  const size_t donlSize = donFields_ ? 2 : 0;
  if (type < 48) {  // single NAL unit, DONL between header and body when present
    if (fragmentOpen_ || size < 2 + donlSize + 1) {
      *reason = fragmentOpen_ ? "H.265 NAL unit inside an unfinished FU" : "H.265 NAL unit too short";
      return DepacketizeResult::kMalformed;
    }
    WriteNal(p, 2, p + 2 + donlSize, size - 2 - donlSize, out);
    NoteNalType(type);
    const int kind = ParameterSetKind(codec_, type);
    if (kind >= 0) {
      if (donlSize == 0) {
        parameterSets_.Store(static_cast<ParameterSets::Kind>(kind), p, size);
      } else {
        fragmentCopy_.assign(p, p + 2);
        fragmentCopy_.insert(fragmentCopy_.end(), p + 2 + donlSize, p + size);
        parameterSets_.Store(static_cast<ParameterSets::Kind>(kind), fragmentCopy_.data(), fragmentCopy_.size());
      }
    }
    return DepacketizeResult::kOk;
  }
  if (type == 48) {  // AP: [DONL|DOND] 16-bit size, NAL unit, repeated
    if (fragmentOpen_) {
      *reason = "H.265 AP inside an unfinished FU";
      return DepacketizeResult::kMalformed;
    }
    size_t offset = 2;
    bool first = true;
    do {
      offset += donFields_ ? (first ? 2 : 1) : 0;
      first = false;
      const size_t nalSize = offset + 2 <= size ? ReadU16(p + offset) : 0;
      offset += 2;
      if (nalSize < 2 || nalSize > size - offset) {
        *reason = "H.265 AP NAL unit size beyond the packet";
        return DepacketizeResult::kMalformed;
      }
      WriteNal(p + offset, nalSize, nullptr, 0, out);
      NoteCompleteNal((p[offset] >> 1) & 0x3F, p + offset, nalSize);
      offset += nalSize;
    } while (offset < size);
    return DepacketizeResult::kOk;
  }
  if (type == 49) {  // FU: payload header, FU header (S E type), [DONL in the first], fragment
    const bool start = (p[2] & 0x80) != 0, end = (p[2] & 0x40) != 0;
    const int fragmentType = p[2] & 0x3F;
    const size_t bodyOffset = 3 + (start ? donlSize : 0);
    if (size <= bodyOffset || (start && end) || fragmentType >= 48) {
      *reason = size <= bodyOffset ? "H.265 FU too short" : "H.265 FU header invalid";
      return DepacketizeResult::kMalformed;
    }
    if (start) {
      if (fragmentOpen_) {
        *reason = "H.265 FU start inside an unfinished FU";
        return DepacketizeResult::kMalformed;
      }
      const uint8_t header[2] = {static_cast<uint8_t>((p[0] & 0x81) | (fragmentType << 1)), p[1]};
      BeginFragment(fragmentType, header, 2, p + bodyOffset, size - bodyOffset, out);
      return DepacketizeResult::kOk;
    }
    if (!fragmentOpen_ || fragmentType != fragmentType_) {
      *reason = "H.265 FU fragment without its start";
      return DepacketizeResult::kMalformed;
    }
    ContinueFragment(p + bodyOffset, size - bodyOffset, end, out);
    return DepacketizeResult::kOk;
  }
  *reason = "unsupported H.265 payload type (PACI or reserved)";
  return DepacketizeResult::kMalformed;
}

}  // namespace muxc
