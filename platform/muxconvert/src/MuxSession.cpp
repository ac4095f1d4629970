#include "MuxSession.h"

#include <algorithm>
#include <string>

#include "StreamClock.h"
#include "evlog.h"

namespace muxc {
namespace {

constexpr const char* kModule = "muxconvert";
// Output timestamps start here so the clock reference can run a little ahead of them.
constexpr int64_t kPtsBase = 18000;  // 200 ms at 90 kHz
constexpr int64_t kScrLead = 18000;
// After this many consecutive "late" packets the sender has restarted its numbering.
constexpr int kLateRunResync = 32;
// Far above any camera's key frame; bounds what a stream without unit ends can make us buffer.
constexpr size_t kMaxAccessUnitBytes = 16 * 1024 * 1024;

int64_t FloorDiv(int64_t value, int64_t divisor) {
  int64_t quotient = value / divisor;
  if (value % divisor != 0 && (value < 0) != (divisor < 0)) --quotient;
  return quotient;
}

int64_t To90kHz(int64_t ticks, uint32_t clockRate) {
  return clockRate == 90000 ? ticks : FloorDiv(ticks * 90000, clockRate);
}

}  // namespace

SequenceTracker::Result SequenceTracker::Next(uint16_t sequence) {
  if (!started_) {
    started_ = true;
    expected_ = static_cast<uint16_t>(sequence + 1);
    return kInOrder;
  }
  const int16_t delta = static_cast<int16_t>(sequence - expected_);
  if (delta < 0 && ++lateRun_ < kLateRunResync) return kLate;
  lateRun_ = 0;
  const bool gap = sequence != expected_;
  expected_ = static_cast<uint16_t>(sequence + 1);
  return gap ? kGap : kInOrder;
}

int32_t MuxSession::Create(const MUXC_CreateParam& param, std::unique_ptr<MuxSession>* out) {
  if (param.sourceKind != MUXC_SOURCE_SDP || param.targetFormat != MUXC_TARGET_PS) {
    evlog_write(EVLOG_ERROR, kModule, "create: unsupported source kind %d / target format %d", param.sourceKind,
                param.targetFormat);
    return static_cast<int32_t>(MUXC_ERR_UNSUPPORTED);
  }
  if (param.sdp == nullptr || param.sdpLength <= 0) {
    evlog_write(EVLOG_ERROR, kModule, "create: no SDP text (length %d)", param.sdpLength);
    return static_cast<int32_t>(MUXC_ERR_INVALID_ARG);
  }
  SdpDescription description;
  const SdpStatus status = ParseSdp(std::string_view(param.sdp, static_cast<size_t>(param.sdpLength)), &description);
  if (status != SdpStatus::kOk) {
    evlog_write(EVLOG_ERROR, kModule, "create: SDP refused (%s, %d bytes)",
                status == SdpStatus::kTooLarge ? "too large" : "empty", param.sdpLength);
    return static_cast<int32_t>(MUXC_ERR_BAD_SDP);
  }

  std::unique_ptr<MuxSession> session(new MuxSession());
  std::string skipped;
  for (const SdpMedia& media : description.media) {
    std::string reason = media.unusableReason;
    const bool isVideo = media.codec == Codec::kH264 || media.codec == Codec::kH265;
    const bool known = media.payloadType >= 0;
    if (reason.empty() && known && session->routes_[media.payloadType] != kRouteNone) {
      reason = "payload type already taken by another medium";
    }
    if (reason.empty() && isVideo && session->video_) reason = "second video medium";
    if (reason.empty() && !isVideo && session->audio_) reason = "second audio medium";
    AdtsConfig adts;
    if (reason.empty() && media.codec == Codec::kAac && !ParseAudioSpecificConfig(media.aac.config, &adts)) {
      reason = "AAC config not expressible as ADTS";
    }
    if (!reason.empty()) {
      if (known && session->routes_[media.payloadType] == kRouteNone) {
        session->routes_[media.payloadType] = kRouteIgnored;  // its packets are expected, and dropped
      }
      skipped += std::string(skipped.empty() ? "" : "; ") + CodecName(media.codec) + " pt " +
                 std::to_string(media.payloadType) + ": " + reason;
      continue;
    }
    if (isVideo) {
      session->video_.emplace(media, media.codec);
      VideoTrack& video = *session->video_;
      video.clockRate = media.clockRate;
      video.streamType = media.codec == Codec::kH265 ? kStreamTypeH265 : kStreamTypeH264;
      video.depacketizer.parameterSets().Seed(media.parameterSets);
      session->routes_[media.payloadType] = kRouteVideo;
    } else {
      session->audio_.emplace(media.aac);
      AudioTrack& audio = *session->audio_;
      audio.adts = adts;
      audio.clockRate = media.clockRate;
      // With SBR the RTP clock runs at the output rate, twice the core's.
      audio.samplesPerUnit = std::max<int64_t>(1, int64_t{1024} * media.clockRate / adts.sampleRate);
      session->routes_[media.payloadType] = kRouteAudio;
    }
  }
  if (!session->video_ && !session->audio_) {
    evlog_write(EVLOG_ERROR, kModule, "create: no usable medium in SDP (%zu media%s%s)", description.media.size(),
                skipped.empty() ? "" : "; ", skipped.c_str());
    return static_cast<int32_t>(MUXC_ERR_NO_MEDIA);
  }
  if (!skipped.empty()) evlog_write(EVLOG_INFO, kModule, "create: media not carried: %s", skipped.c_str());

  MuxSession& s = *session;
  if (s.video_) s.streams_[s.streamCount_++] = PsStream{kVideoStreamId, s.video_->streamType};
  if (s.audio_) s.streams_[s.streamCount_++] = PsStream{kAudioStreamId, kStreamTypeAac};
  s.keyFramePrefixBase_ = kPackHeaderSize + SystemHeaderSize(s.streamCount_) + ProgramStreamMapSize(s.streamCount_);
  *out = std::move(session);
  return 0;
}

int32_t MuxSession::SetGlobalTime(const MUXC_GlobalTime& time) {
  if (state_ == State::kStopped) return static_cast<int32_t>(MUXC_ERR_STATE);
  if (time.dwReserved != 1 && !IsValidCivilTime(time)) {
    evlog_write(EVLOG_ERROR, kModule, "set global time: invalid time %d-%d-%d %d:%d:%d.%d", time.year, time.month,
                time.day, time.hour, time.minute, time.second, time.millisecond);
    return static_cast<int32_t>(MUXC_ERR_INVALID_ARG);
  }
  globalTime_ = time;
  globalTimeSet_ = true;
  return 0;
}

int32_t MuxSession::RegisterTimeCallback(MUXC_GlobalTimeCallBack callback, void* user) {
  if (state_ == State::kStopped) return static_cast<int32_t>(MUXC_ERR_STATE);
  timeCallback_ = callback;
  timeUser_ = user;
  return 0;
}

int32_t MuxSession::RegisterOutputCallback(MUXC_OutputDataCallBack callback, void* user) {
  if (state_ == State::kStopped) return static_cast<int32_t>(MUXC_ERR_STATE);
  outputCallback_ = callback;
  outputUser_ = user;
  return 0;
}

int32_t MuxSession::Start() {
  if (state_ != State::kCreated) return static_cast<int32_t>(MUXC_ERR_STATE);
  state_ = State::kStarted;
  uint8_t header[kPackHeaderSize + SystemHeaderSize(kMaxPsStreams) + ProgramStreamMapSize(kMaxPsStreams)];
  size_t size = WritePackHeader(header, 0);
  size += WriteSystemHeader(header + size, streams_, streamCount_);
  size += WriteProgramStreamMap(header + size, streams_, streamCount_);
  Emit(header, size, MUXC_UNIT_HEADER);
  return 0;
}

int32_t MuxSession::Stop() {
  if (state_ == State::kStopped) return static_cast<int32_t>(MUXC_ERR_STATE);
  state_ = State::kStopped;
  const Counters& c = counters_;
  evlog_write(EVLOG_INFO, kModule,
              "stopped: %llu video and %llu audio units out, %llu units dropped, %llu sequence gaps, %llu bad packets",
              static_cast<unsigned long long>(c.videoUnits), static_cast<unsigned long long>(c.audioUnits),
              static_cast<unsigned long long>(c.droppedUnits), static_cast<unsigned long long>(c.sequenceGaps),
              static_cast<unsigned long long>(c.badPackets));
  return 0;
}

void MuxSession::LogBadPacket(const char* what) {
  // Every bad packet is counted; the log keeps the first ones and then a sample.
  const uint64_t count = ++counters_.badPackets;
  if (count <= 16 || count % 1024 == 0) {
    evlog_write(EVLOG_ERROR, kModule, "input: bad packet (%s), %llu so far", what,
                static_cast<unsigned long long>(count));
  }
}

int32_t MuxSession::InputPacket(const uint8_t* data, size_t size) {
  if (state_ != State::kStarted) return static_cast<int32_t>(MUXC_ERR_STATE);
  if ((data[0] >> 6) == 2 && LooksLikeRtcp(data, size)) return 0;  // reports on a shared channel carry no media
  RtpView rtp;
  const RtpError error = ParseRtp(data, size, &rtp);
  if (error != RtpError::kNone) {
    LogBadPacket(RtpErrorText(error));
    return static_cast<int32_t>(MUXC_ERR_BAD_PACKET);
  }
  switch (routes_[rtp.payloadType]) {
    case kRouteVideo:
      return OnVideoPacket(rtp);
    case kRouteAudio:
      return OnAudioPacket(rtp);
    case kRouteIgnored:
      return 0;
    case kRouteNone:
      break;
  }
  LogBadPacket("payload type not in the SDP");
  return static_cast<int32_t>(MUXC_ERR_BAD_PACKET);
}

int32_t MuxSession::OnVideoPacket(const RtpView& rtp) {
  VideoTrack& video = *video_;
  const SequenceTracker::Result order = video.sequence.Next(rtp.sequence);
  if (order == SequenceTracker::kLate) return 0;
  const int64_t timestamp = video.clock.Extend(rtp.timestamp);
  const bool gap = order == SequenceTracker::kGap;
  if (gap) {
    // Lost packets may have ended the open unit or begun this packet's unit: neither is kept.
    ++counters_.sequenceGaps;
    if (video.unitOpen) video.unitBroken = true;
  }
  if (video.unitOpen && timestamp != video.unitTimestamp) FinishVideoUnit();
  if (state_ != State::kStarted) return 0;  // a callback stopped the session
  if (!video.unitOpen) BeginVideoUnit(timestamp);
  if (gap) video.unitBroken = true;

  int32_t result = 0;
  if (!video.unitBroken && video.assembler.payloadSize() + rtp.payloadSize > kMaxAccessUnitBytes) {
    video.unitBroken = true;  // no marker and no timestamp change for far too long
    LogBadPacket("video access unit beyond the size limit");
    result = static_cast<int32_t>(MUXC_ERR_BAD_PACKET);
  }
  if (!video.unitBroken && rtp.payloadSize > 0) {
    const char* reason = "";
    if (video.depacketizer.Push(rtp.payload, rtp.payloadSize, video.assembler, &reason) != DepacketizeResult::kOk) {
      video.unitBroken = true;
      LogBadPacket(reason);
      result = static_cast<int32_t>(MUXC_ERR_BAD_PACKET);
    }
  }
  if (rtp.marker) FinishVideoUnit();
  return result;
}

void MuxSession::BeginVideoUnit(int64_t timestamp) {
  VideoTrack& video = *video_;
  video.unitOpen = true;
  video.unitBroken = false;
  video.unitTimestamp = timestamp;
  video.depacketizer.BeginAccessUnit();
  const size_t room = keyFramePrefixBase_ + kPesHeaderSizePtsDts + video.depacketizer.parameterSets().annexBSize();
  video.assembler.Begin(room, true);
}

void MuxSession::FinishVideoUnit() {
  VideoTrack& video = *video_;
  video.unitOpen = false;
  if (video.unitBroken || video.depacketizer.fragmentOpen()) {
    ++counters_.droppedUnits;
    return;
  }
  const AccessUnitFlags& flags = video.depacketizer.flags();
  if (!flags.vcl) return;  // parameter sets or SEI alone: kept for the next key frame
  const ParameterSets& parameterSets = video.depacketizer.parameterSets();
  const bool keyFrame = flags.keyFrame;
  const bool insertParameterSets = keyFrame && !parameterSets.CarriedBy(flags);
  if (!video.keyFrameSeen) {
    // Nothing before the first key frame can be decoded.
    if (!keyFrame || (insertParameterSets && !parameterSets.Complete())) {
      if (keyFrame && !video.warnedNoParameterSets) {
        video.warnedNoParameterSets = true;
        evlog_write(EVLOG_WARN, kModule, "key frame without parameter sets (none in SDP or stream yet), waiting");
      }
      ++counters_.droppedUnits;
      return;
    }
  }
  const int64_t pts = kPtsBase + To90kHz(video.unitTimestamp, video.clockRate);
  video.assembler.Finish(kVideoStreamId, static_cast<uint64_t>(pts));

  const size_t parameterBytes = insertParameterSets ? parameterSets.annexBSize() : 0;
  const size_t prefixSize =
      keyFrame ? keyFramePrefixBase_ + (parameterBytes ? kPesHeaderSizePtsDts + parameterBytes : 0) : kPackHeaderSize;
  uint8_t* out = video.assembler.Prepend(prefixSize);
  out += WritePackHeader(out, NextScr(pts));
  if (keyFrame) {
    out += WriteSystemHeader(out, streams_, streamCount_);
    out += WriteProgramStreamMap(out, streams_, streamCount_);
    if (parameterBytes > 0) {
      out += WritePesHeaderPtsDts(out, kVideoStreamId, parameterBytes, static_cast<uint64_t>(pts),
                                  static_cast<uint64_t>(pts));
      parameterSets.CopyAnnexB(out);
    }
  }
  video.keyFrameSeen = true;
  lastVideoPts_ = pts;
  ++counters_.videoUnits;
  Emit(video.assembler.data(), video.assembler.size(), MUXC_UNIT_PAYLOAD);
  ReportStreamTime(video.unitTimestamp, video.clockRate);
}

int32_t MuxSession::OnAudioPacket(const RtpView& rtp) {
  AudioTrack& audio = *audio_;
  const SequenceTracker::Result order = audio.sequence.Next(rtp.sequence);
  if (order == SequenceTracker::kLate) return 0;
  const int64_t timestamp = audio.clock.Extend(rtp.timestamp);
  if (order == SequenceTracker::kGap) {
    ++counters_.sequenceGaps;
    audio.depacketizer.Resync();
  }
  if (audio.depacketizer.fragmentOpen() && timestamp != audio.fragmentTimestamp) {
    audio.depacketizer.Reset();  // the unit's last fragment never came
    ++counters_.droppedUnits;
  }
  if (rtp.payloadSize == 0) return 0;
  const char* reason = "";
  const DepacketizeResult result = audio.depacketizer.Push(
      rtp.payload, rtp.payloadSize, rtp.marker,
      [&](const uint8_t* unit, size_t size, size_t ordinal) {
        EmitAudioUnit(unit, size, timestamp + static_cast<int64_t>(ordinal) * audio.samplesPerUnit);
      },
      &reason);
  if (audio.depacketizer.fragmentOpen()) audio.fragmentTimestamp = timestamp;
  if (result != DepacketizeResult::kOk) {
    LogBadPacket(reason);
    return static_cast<int32_t>(MUXC_ERR_BAD_PACKET);
  }
  return 0;
}

void MuxSession::EmitAudioUnit(const uint8_t* data, size_t size, int64_t timestamp) {
  if (state_ != State::kStarted || size == 0) return;
  if (video_ && !video_->keyFrameSeen) {
    ++counters_.droppedUnits;  // keeps the stream starting with a picture
    return;
  }
  AudioTrack& audio = *audio_;
  if (size + kAdtsHeaderSize > kMaxAdtsFrame) {
    LogBadPacket("AAC access unit too large for ADTS");
    return;
  }
  if (!audio.anchored) {
    // Without RTCP the two clocks are unrelated: the first sound plays with the current picture.
    audio.anchored = true;
    audio.anchorTimestamp = timestamp;
    audio.anchorPts = video_ ? lastVideoPts_ : kPtsBase;
  }
  const int64_t pts = audio.anchorPts + To90kHz(timestamp - audio.anchorTimestamp, audio.clockRate);
  audio.assembler.Begin(kPackHeaderSize, false);
  uint8_t adts[kAdtsHeaderSize];
  WriteAdtsHeader(adts, audio.adts, size);
  audio.assembler.Append(adts, sizeof(adts));
  audio.assembler.Append(data, size);
  audio.assembler.Finish(kAudioStreamId, static_cast<uint64_t>(pts));
  WritePackHeader(audio.assembler.Prepend(kPackHeaderSize), NextScr(pts));
  ++counters_.audioUnits;
  Emit(audio.assembler.data(), audio.assembler.size(), MUXC_UNIT_PAYLOAD);
}

uint64_t MuxSession::NextScr(int64_t pts) {
  lastScr_ = std::max(lastScr_, std::max<int64_t>(0, pts - kScrLead));
  return static_cast<uint64_t>(lastScr_);
}

void MuxSession::Emit(const uint8_t* data, size_t size, int32_t type) {
  if (outputCallback_ == nullptr) return;
  MUXC_OutputUnit unit{data, static_cast<int32_t>(size), type};
  outputCallback_(&unit, outputUser_);
}

void MuxSession::ReportStreamTime(int64_t elapsedTicks, uint32_t clockRate) {
  if (timeCallback_ == nullptr || !globalTimeSet_ || state_ != State::kStarted) return;
  MUXC_GlobalTime time{};
  if (globalTime_.dwReserved == 1) {
    time = LocalTimeOf(WallClockMs(), 1);
  } else if (!AddMilliseconds(globalTime_, FloorDiv(elapsedTicks * 1000, clockRate), &time)) {
    return;
  }
  timeCallback_(&time, timeUser_);
}

}  // namespace muxc
