#include "SdpParser.h"

#include <algorithm>
#include <charconv>

namespace muxc {
namespace {

constexpr size_t kMaxMedia = 16;
constexpr size_t kMaxFormatsPerMedium = 32;
constexpr size_t kMaxParameterSets = 16;
constexpr size_t kMaxParameterSetBytes = 4096;

struct Format {
  int payloadType = -1;
  std::string_view encoding;
  uint32_t clockRate = 0;
  int channels = 1;
  bool hasRtpmap = false;
  std::string_view fmtp;
};

struct RawMedium {
  MediaKind kind = MediaKind::kOther;
  std::vector<Format> formats;
  std::string_view control;
};

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

std::string_view Trim(std::string_view s) {
  auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!s.empty() && blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && blank(s.back())) s.remove_suffix(1);
  return s;
}

// Splits off the text up to the first `separator` (or the whole rest).
std::string_view NextToken(std::string_view& rest, char separator) {
  size_t end = rest.find(separator);
  std::string_view token = rest.substr(0, end);
  rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  return token;
}

std::string_view NextWord(std::string_view& rest) {
  rest = Trim(rest);
  size_t end = rest.find_first_of(" \t");
  std::string_view word = rest.substr(0, end);
  rest = end == std::string_view::npos ? std::string_view() : rest.substr(end);
  return word;
}

template <typename Int>
bool ParseInt(std::string_view text, Int* value, Int low, Int high) {
  text = Trim(text);
  Int parsed{};
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (error != std::errc() || end != text.data() + text.size() || parsed < low || parsed > high) return false;
  *value = parsed;
  return true;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<std::vector<uint8_t>> DecodeHex(std::string_view text) {
  if (text.empty() || text.size() % 2 != 0 || text.size() > 2 * kMaxParameterSetBytes) return std::nullopt;
  std::vector<uint8_t> bytes(text.size() / 2);
  for (size_t i = 0; i < bytes.size(); ++i) {
    int high = HexDigit(text[2 * i]), low = HexDigit(text[2 * i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes[i] = static_cast<uint8_t>(high << 4 | low);
  }
  return bytes;
}

// Calls visit(key, value) for each "key=value" of an a=fmtp parameter list.
template <typename Visit>
void ForEachFmtpParameter(std::string_view params, Visit visit) {
  while (!params.empty()) {
    std::string_view item = Trim(NextToken(params, ';'));
    if (item.empty()) continue;
    size_t equals = item.find('=');
    if (equals == std::string_view::npos) {
      visit(item, std::string_view());
    } else {
      visit(Trim(item.substr(0, equals)), Trim(item.substr(equals + 1)));
    }
  }
}

// Appends each comma-separated base64 parameter set; returns false if any was unreadable.
bool AppendParameterSets(std::string_view list, std::vector<std::vector<uint8_t>>* sets) {
  bool allGood = true;
  while (!list.empty()) {
    std::string_view item = Trim(NextToken(list, ','));
    if (item.empty()) continue;
    auto decoded = DecodeBase64(item);
    if (!decoded || decoded->empty() || decoded->size() > kMaxParameterSetBytes || sets->size() >= kMaxParameterSets) {
      allGood = false;
      continue;
    }
    sets->push_back(std::move(*decoded));
  }
  return allGood;
}

void ParseMediaLine(std::string_view value, RawMedium* medium) {
  std::string_view rest = value;
  std::string_view kind = NextWord(rest);
  if (EqualsIgnoreCase(kind, "video")) {
    medium->kind = MediaKind::kVideo;
  } else if (EqualsIgnoreCase(kind, "audio")) {
    medium->kind = MediaKind::kAudio;
  }
  NextWord(rest);  // port
  NextWord(rest);  // transport
  for (std::string_view word = NextWord(rest); !word.empty(); word = NextWord(rest)) {
    int payloadType = 0;
    if (!ParseInt(word, &payloadType, 0, 127)) continue;
    if (medium->formats.size() >= kMaxFormatsPerMedium) break;
    medium->formats.push_back(Format{payloadType});
  }
}

Format* FindFormat(RawMedium* medium, std::string_view payloadTypeText) {
  int payloadType = 0;
  if (!ParseInt(payloadTypeText, &payloadType, 0, 127)) return nullptr;
  for (Format& format : medium->formats) {
    if (format.payloadType == payloadType) return &format;
  }
  return nullptr;
}

void ParseRtpmap(std::string_view value, RawMedium* medium) {
  std::string_view rest = value;
  Format* format = FindFormat(medium, NextWord(rest));
  if (format == nullptr) return;
  std::string_view map = Trim(rest);
  std::string_view encoding = Trim(NextToken(map, '/'));
  uint32_t clockRate = 0;
  if (encoding.empty() || !ParseInt(NextToken(map, '/'), &clockRate, 1u, 10000000u)) return;
  int channels = 1;
  if (!map.empty() && !ParseInt(map, &channels, 1, 255)) return;
  format->encoding = encoding;
  format->clockRate = clockRate;
  format->channels = channels;
  format->hasRtpmap = true;
}

void ParseFmtp(std::string_view value, RawMedium* medium) {
  std::string_view rest = value;
  Format* format = FindFormat(medium, NextWord(rest));
  if (format != nullptr) format->fmtp = Trim(rest);
}

Codec CodecOf(const Format& format, uint32_t* clockRate) {
  if (format.hasRtpmap) {
    *clockRate = format.clockRate;
    if (EqualsIgnoreCase(format.encoding, "H264")) return Codec::kH264;
    if (EqualsIgnoreCase(format.encoding, "H265") || EqualsIgnoreCase(format.encoding, "HEVC")) return Codec::kH265;
    if (EqualsIgnoreCase(format.encoding, "MPEG4-GENERIC")) return Codec::kAac;
    if (EqualsIgnoreCase(format.encoding, "PCMU")) return Codec::kPcmu;
    if (EqualsIgnoreCase(format.encoding, "PCMA")) return Codec::kPcma;
    return Codec::kUnknown;
  }
  *clockRate = 8000;
  if (format.payloadType == 0) return Codec::kPcmu;
  if (format.payloadType == 8) return Codec::kPcma;
  return Codec::kUnknown;
}

void ApplyH264Parameters(std::string_view fmtp, SdpMedia* media) {
  ForEachFmtpParameter(fmtp, [&](std::string_view key, std::string_view value) {
    if (EqualsIgnoreCase(key, "packetization-mode")) {
      if (!ParseInt(value, &media->packetizationMode, 0, 2)) media->unusableReason = "bad packetization-mode";
    } else if (EqualsIgnoreCase(key, "sprop-parameter-sets")) {
      // Unreadable sets are skipped: the stream usually repeats them in-band.
      AppendParameterSets(value, &media->parameterSets);
    }
  });
  if (media->packetizationMode == 2 && media->unusableReason.empty()) {
    media->unusableReason = "interleaved packetization-mode 2";
  }
}

void ApplyH265Parameters(std::string_view fmtp, SdpMedia* media) {
  std::vector<std::vector<uint8_t>> vps, sps, pps;
  ForEachFmtpParameter(fmtp, [&](std::string_view key, std::string_view value) {
    if (EqualsIgnoreCase(key, "sprop-vps")) {
      AppendParameterSets(value, &vps);
    } else if (EqualsIgnoreCase(key, "sprop-sps")) {
      AppendParameterSets(value, &sps);
    } else if (EqualsIgnoreCase(key, "sprop-pps")) {
      AppendParameterSets(value, &pps);
    } else if (EqualsIgnoreCase(key, "sprop-max-don-diff")) {
      if (!ParseInt(value, &media->maxDonDiff, 0, 32767)) media->unusableReason = "bad sprop-max-don-diff";
    }
  });
  for (auto* group : {&vps, &sps, &pps}) {
    for (auto& set : *group) media->parameterSets.push_back(std::move(set));
  }
}

void ApplyAacParameters(std::string_view fmtp, SdpMedia* media) {
  AacParams& aac = media->aac;
  bool configSeen = false;
  ForEachFmtpParameter(fmtp, [&](std::string_view key, std::string_view value) {
    struct {
      const char* name;
      int* field;
    } const lengths[] = {{"sizelength", &aac.sizeLength},
                         {"indexlength", &aac.indexLength},
                         {"indexdeltalength", &aac.indexDeltaLength},
                         {"ctsdeltalength", &aac.ctsDeltaLength},
                         {"dtsdeltalength", &aac.dtsDeltaLength},
                         {"randomaccessindication", &aac.randomAccessIndication},
                         {"streamstateindication", &aac.streamStateIndication},
                         {"auxiliarydatasizelength", &aac.auxiliaryDataSizeLength}};
    for (const auto& length : lengths) {
      if (EqualsIgnoreCase(key, length.name)) {
        if (!ParseInt(value, length.field, 0, 32)) media->unusableReason = std::string("bad ") + length.name;
        return;
      }
    }
    if (EqualsIgnoreCase(key, "config")) {
      configSeen = true;
      auto config = DecodeHex(value);
      if (!config || config->size() < 2) {
        media->unusableReason = "bad AAC config";
      } else {
        aac.config = std::move(*config);
      }
    }
  });
  if (!media->unusableReason.empty()) return;
  if (aac.sizeLength == 0) {
    media->unusableReason = "AAC without AU headers (sizelength 0)";
  } else if (aac.randomAccessIndication > 1) {
    media->unusableReason = "bad randomaccessindication";
  } else if (!configSeen) {
    media->unusableReason = "AAC without config";
  }
}

SdpMedia Resolve(const RawMedium& raw) {
  SdpMedia media;
  media.kind = raw.kind;
  media.control = std::string(raw.control);
  const Format* chosen = nullptr;
  for (const Format& format : raw.formats) {
    uint32_t clockRate = 0;
    Codec codec = CodecOf(format, &clockRate);
    if (codec == Codec::kUnknown) continue;
    chosen = &format;
    media.codec = codec;
    media.clockRate = clockRate;
    break;
  }
  if (chosen == nullptr) {
    if (!raw.formats.empty()) media.payloadType = raw.formats.front().payloadType;
    media.unusableReason = "no supported payload format";
    return media;
  }
  media.payloadType = chosen->payloadType;
  media.channels = chosen->channels;
  switch (media.codec) {
    case Codec::kH264:
      ApplyH264Parameters(chosen->fmtp, &media);
      break;
    case Codec::kH265:
      ApplyH265Parameters(chosen->fmtp, &media);
      break;
    case Codec::kAac:
      ApplyAacParameters(chosen->fmtp, &media);
      break;
    case Codec::kPcmu:
    case Codec::kPcma:
      // No stream type for G.711 is read by common players from a program stream.
      media.unusableReason = "G.711 is not carried in the program stream";
      break;
    case Codec::kUnknown:
      break;
  }
  bool videoCodec = media.codec == Codec::kH264 || media.codec == Codec::kH265;
  if (media.unusableReason.empty() && videoCodec && media.kind != MediaKind::kVideo) {
    media.unusableReason = "video codec outside a video medium";
  }
  if (media.unusableReason.empty() && !videoCodec && media.kind != MediaKind::kAudio) {
    media.unusableReason = "audio codec outside an audio medium";
  }
  return media;
}

}  // namespace

std::optional<std::vector<uint8_t>> DecodeBase64(std::string_view text) {
  while (!text.empty() && text.back() == '=') text.remove_suffix(1);
  if (text.size() % 4 == 1) return std::nullopt;
  std::vector<uint8_t> out;
  out.reserve(text.size() * 3 / 4);
  uint32_t accumulator = 0;
  int bits = 0;
  for (char c : text) {
    int value;
    if (c >= 'A' && c <= 'Z') {
      value = c - 'A';
    } else if (c >= 'a' && c <= 'z') {
      value = c - 'a' + 26;
    } else if (c >= '0' && c <= '9') {
      value = c - '0' + 52;
    } else if (c == '+') {
      value = 62;
    } else if (c == '/') {
      value = 63;
    } else {
      return std::nullopt;
    }
    accumulator = (accumulator << 6) | static_cast<uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<uint8_t>(accumulator >> bits));
    }
  }
  return out;
}

SdpStatus ParseSdp(std::string_view text, SdpDescription* out) {
  out->media.clear();
  if (text.size() > kMaxSdpBytes) return SdpStatus::kTooLarge;
  if (Trim(text).empty()) return SdpStatus::kEmpty;

  std::vector<RawMedium> media;
  bool ignoring = false;  // inside a medium beyond the limit
  std::string_view rest = text;
  while (!rest.empty()) {
    std::string_view line = Trim(NextToken(rest, '\n'));
    if (line.size() < 2 || line[1] != '=') continue;
    char type = line[0];
    std::string_view value = line.substr(2);
    if (type == 'm') {
      ignoring = media.size() >= kMaxMedia;
      if (!ignoring) {
        media.emplace_back();
        ParseMediaLine(value, &media.back());
      }
      continue;
    }
    if (type != 'a' || media.empty() || ignoring) continue;  // session-level lines are not needed
    RawMedium& medium = media.back();
    size_t colon = value.find(':');
    std::string_view name = value.substr(0, colon);
    std::string_view attribute = colon == std::string_view::npos ? std::string_view() : value.substr(colon + 1);
    if (EqualsIgnoreCase(name, "rtpmap")) {
      ParseRtpmap(attribute, &medium);
    } else if (EqualsIgnoreCase(name, "fmtp")) {
      ParseFmtp(attribute, &medium);
    } else if (EqualsIgnoreCase(name, "control")) {
      medium.control = Trim(attribute);
    }
  }
  for (const RawMedium& raw : media) out->media.push_back(Resolve(raw));
  return SdpStatus::kOk;
}

const char* CodecName(Codec codec) {
  switch (codec) {
    case Codec::kH264:
      return "H264";
    case Codec::kH265:
      return "H265";
    case Codec::kAac:
      return "AAC";
    case Codec::kPcmu:
      return "PCMU";
    case Codec::kPcma:
      return "PCMA";
    case Codec::kUnknown:
      break;
  }
  return "unknown";
}

}  // namespace muxc
