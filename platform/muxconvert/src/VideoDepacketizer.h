// VideoDepacketizer.h - H.264 (RFC 6184: single NAL unit, STAP-A, FU-A) and
// H.265 (RFC 7798: single, AP, FU, optional DONL/DOND) RTP payloads to an
// Annex-B byte stream written straight into the unit being assembled. Keeps
// the latest parameter sets so they can be repeated before key frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "PesAssembler.h"
#include "SdpParser.h"

namespace muxc {

// What an access unit holds, as far as repackaging cares.
struct AccessUnitFlags {
  bool vcl = false;
  bool keyFrame = false;  // H.264 IDR, H.265 IRAP
  bool vps = false;
  bool sps = false;
  bool pps = false;
};

// Latest VPS/SPS/PPS in Annex-B form. In-band sets replace the ones of the
// same kind (all sets of a kind within one access unit are kept together).
class ParameterSets {
 public:
  enum Kind { kVps = 0, kSps = 1, kPps = 2 };

  explicit ParameterSets(Codec codec) : codec_(codec) {}
  void Seed(const std::vector<std::vector<uint8_t>>& sets);  // from the SDP, raw NAL units
  void BeginAccessUnit();
  void Store(Kind kind, const uint8_t* nal, size_t size);
  // All kinds the codec needs are known.
  bool Complete() const;
  // All kinds the codec needs are present in `flags`.
  bool CarriedBy(const AccessUnitFlags& flags) const;
  size_t annexBSize() const { return sets_[kVps].size() + sets_[kSps].size() + sets_[kPps].size(); }
  uint8_t* CopyAnnexB(uint8_t* out) const;

 private:
  Codec codec_;
  std::vector<uint8_t> sets_[3];
  bool replacedInUnit_[3] = {false, false, false};
};

enum class DepacketizeResult { kOk, kMalformed };

class VideoDepacketizer {
 public:
  // `donFields`: H.265 payloads carry DONL/DOND (sprop-max-don-diff > 0).
  VideoDepacketizer(Codec codec, bool donFields) : codec_(codec), donFields_(donFields), parameterSets_(codec) {}

  void BeginAccessUnit();
  // Appends the NAL units of one RTP payload. On kMalformed, `reason` says why
  // and the access unit must be dropped.
  DepacketizeResult Push(const uint8_t* payload, size_t size, PesAssembler& out, const char** reason);
  // The unit ended inside a fragmented NAL unit: its last fragment never came.
  bool fragmentOpen() const { return fragmentOpen_; }
  const AccessUnitFlags& flags() const { return flags_; }
  ParameterSets& parameterSets() { return parameterSets_; }

 private:
  DepacketizeResult PushH264(const uint8_t* payload, size_t size, PesAssembler& out, const char** reason);
  DepacketizeResult PushH265(const uint8_t* payload, size_t size, PesAssembler& out, const char** reason);
  void WriteNal(const uint8_t* header, size_t headerSize, const uint8_t* body, size_t bodySize, PesAssembler& out);
  void NoteNalType(int type);
  void NoteCompleteNal(int type, const uint8_t* nal, size_t size);
  void BeginFragment(int type, const uint8_t* header, size_t headerSize, const uint8_t* body, size_t bodySize,
                     PesAssembler& out);
  void ContinueFragment(const uint8_t* body, size_t bodySize, bool end, PesAssembler& out);

  Codec codec_;
  bool donFields_;
  ParameterSets parameterSets_;
  AccessUnitFlags flags_;
  bool fragmentOpen_ = false;
  int fragmentType_ = 0;
  std::vector<uint8_t> fragmentCopy_;  // a parameter set arriving in fragments
  bool fragmentCopyOverflow_ = false;
};

}  // namespace muxc
