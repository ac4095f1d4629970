// MuxSession.h - one repackaging session behind a MUXC_HANDLE: routes RTP
// packets by payload type, assembles access units, and hands out program
// stream units and stream times through the registered callbacks.
//
// Choices worth knowing:
// - G.711 is recognised but not carried: players read any 0xC0 stream of a
//   program stream without a known map type as MPEG audio and fail on it.
// - Without RTCP the audio and video clocks are unrelated; the first sound
//   is stamped with the picture being shown when it arrives.
// - A sequence gap drops the unit that was open and the unit of the packet
//   after the gap (lost packets may have begun it), then output resumes.
// - One thread at a time per handle; callbacks may call Stop or Release.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "AacDepacketizer.h"
#include "MuxConvert.h"
#include "PesAssembler.h"
#include "RtpPacket.h"
#include "SdpParser.h"
#include "VideoDepacketizer.h"

namespace muxc {

// 16-bit sequence tracking: in order, a gap (packets lost), or late/duplicate.
class SequenceTracker {
 public:
  enum Result { kInOrder, kGap, kLate };
  Result Next(uint16_t sequence);

 private:
  bool started_ = false;
  uint16_t expected_ = 0;
  int lateRun_ = 0;
};

class MuxSession {
 public:
  // Returns 0 or a MUXC_ERR_* code (logged).
  static int32_t Create(const MUXC_CreateParam& param, std::unique_ptr<MuxSession>* out);

  int32_t SetGlobalTime(const MUXC_GlobalTime& time);
  int32_t RegisterTimeCallback(MUXC_GlobalTimeCallBack callback, void* user);
  int32_t RegisterOutputCallback(MUXC_OutputDataCallBack callback, void* user);
  int32_t Start();
  int32_t InputPacket(const uint8_t* data, size_t size);
  int32_t Stop();

  // Re-entrancy bookkeeping for the C layer: a Release from inside a callback
  // is carried out when the outermost call returns.
  int callDepth = 0;
  bool releaseRequested = false;

 private:
  enum class State { kCreated, kStarted, kStopped };
  enum Route : uint8_t { kRouteNone, kRouteVideo, kRouteAudio, kRouteIgnored };

  struct VideoTrack {
    VideoTrack(const SdpMedia& media, Codec codec) : depacketizer(codec, media.maxDonDiff > 0) {}
    VideoDepacketizer depacketizer;
    PesAssembler assembler;
    SequenceTracker sequence;
    TimestampUnwrapper clock;
    uint32_t clockRate = 90000;
    uint8_t streamType = 0;
    bool unitOpen = false;
    bool unitBroken = false;
    int64_t unitTimestamp = 0;
    bool keyFrameSeen = false;
    bool warnedNoParameterSets = false;
  };

  struct AudioTrack {
    explicit AudioTrack(const AacParams& params) : depacketizer(params) {}
    AacDepacketizer depacketizer;
    AdtsConfig adts;
    PesAssembler assembler;
    SequenceTracker sequence;
    TimestampUnwrapper clock;
    uint32_t clockRate = 0;
    int64_t samplesPerUnit = 1024;
    int64_t fragmentTimestamp = 0;
    bool anchored = false;
    int64_t anchorTimestamp = 0;
    int64_t anchorPts = 0;
  };

  MuxSession() = default;
  int32_t OnVideoPacket(const RtpView& rtp);
  int32_t OnAudioPacket(const RtpView& rtp);
  void BeginVideoUnit(int64_t timestamp);
  void FinishVideoUnit();
  void EmitAudioUnit(const uint8_t* data, size_t size, int64_t timestamp);
  void Emit(const uint8_t* data, size_t size, int32_t type);
  void ReportStreamTime(int64_t elapsedTicks, uint32_t clockRate);
  uint64_t NextScr(int64_t pts);
  void LogBadPacket(const char* what);

  State state_ = State::kCreated;
  std::array<Route, 128> routes_{};
  std::optional<VideoTrack> video_;
  std::optional<AudioTrack> audio_;
  PsStream streams_[kMaxPsStreams] = {};
  size_t streamCount_ = 0;
  size_t keyFramePrefixBase_ = 0;  // pack header + system header + map

  MUXC_OutputDataCallBack outputCallback_ = nullptr;
  void* outputUser_ = nullptr;
  MUXC_GlobalTimeCallBack timeCallback_ = nullptr;
  void* timeUser_ = nullptr;
  bool globalTimeSet_ = false;
  MUXC_GlobalTime globalTime_{};

  int64_t lastVideoPts_ = 0;
  int64_t lastScr_ = -1;
  struct Counters {  // logged when the session stops
    uint64_t videoUnits = 0;
    uint64_t audioUnits = 0;
    uint64_t droppedUnits = 0;  // broken, or before the first key frame
    uint64_t sequenceGaps = 0;
    uint64_t badPackets = 0;
  } counters_;
};

}  // namespace muxc
