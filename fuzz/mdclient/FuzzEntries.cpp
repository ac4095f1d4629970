#include "FuzzEntries.h"

#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "protocol/KeyFrame.h"
#include "protocol/RtspAuth.h"
#include "protocol/RtspParser.h"
#include "protocol/RtspRequest.h"
#include "protocol/RtspUrl.h"
#include "protocol/Sdp.h"

namespace mdclient_fuzz {
namespace {

class Reader : public mdclient::RtspStreamParser::Listener {
 public:
  void OnMessage(const mdclient::RtspMessage& message) override {
    if (auto challenge = mdclient::ChooseAuthChallenge(message.FindAll("WWW-Authenticate"))) {
      mdclient::AuthorizationValue(*challenge, {"user", "pass", "DESCRIBE", "rtsp://cam/x", 1, "0a4f113b"});
    }
    if (const std::string* session = message.Find("Session")) mdclient::ParseSessionHeader(*session);
    if (const std::string* transport = message.Find("Transport")) mdclient::ParseInterleaved(*transport);
    if (const std::string* methods = message.Find("Public")) mdclient::ListsMethod(*methods, "GET_PARAMETER");
    mdclient::SessionDescription description = mdclient::ParseSessionDescription(message.body);
    const std::string* base = message.Find("Content-Base");
    for (const mdclient::SdpMedium& medium : description.media) {
      mdclient::ResolveControlUrl(base != nullptr ? *base : "rtsp://cam/x", medium.control);
    }
    (void)message.CSeq();
  }
  void OnInterleaved(uint8_t channel, const uint8_t* data, size_t size) override {
    // Every byte is read, so a payload pointing outside the input shows up under ASan.
    volatile uint8_t sum = channel;
    for (size_t i = 0; i < size; ++i) sum = static_cast<uint8_t>(sum + data[i]);
    if ((channel & 1) != 0) mdclient::RtcpHasBye(data, size);
    m_keyFrames[channel % 3].StartsKeyFrame(data, size);
  }

 private:
  mdclient::KeyFrameDetector m_keyFrames[3] = {mdclient::KeyFrameDetector(mdclient::VideoCodec::kH264),
                                               mdclient::KeyFrameDetector(mdclient::VideoCodec::kH265),
                                               mdclient::KeyFrameDetector(mdclient::VideoCodec::kOther)};
};

}  // namespace

int FuzzRtspStream(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  size_t chunk = static_cast<size_t>(data[0]) * 16 + 1;
  ++data;
  --size;
  mdclient::RtspParserLimits limits;
  limits.maxHeaderBytes = 4096;  // small limits so the fuzzer reaches them
  limits.maxBodyBytes = 4096;
  mdclient::RtspStreamParser parser(limits);
  Reader reader;
  for (size_t at = 0; at < size; at += chunk) {
    size_t length = size - at < chunk ? size - at : chunk;
    if (!parser.Feed(data + at, length, reader)) {
      if (parser.Error().empty()) std::abort();  // a failure always says why
      break;
    }
  }
  return 0;
}

int FuzzRtspUrl(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  std::string error;
  std::optional<mdclient::RtspUrl> url = mdclient::ParseRtspUrl(text, &error);
  if (url) {
    // What we send and log must parse again to the same place, without credentials.
    std::optional<mdclient::RtspUrl> again = mdclient::ParseRtspUrl(url->RequestUri());
    if (!again || again->host != url->host || again->port != url->port || again->hasCredentials ||
        again->pathAndQuery != url->pathAndQuery) {
      std::abort();
    }
  } else if (error.empty()) {
    std::abort();
  }
  mdclient::RedactUrl(text);
  return 0;
}

}  // namespace mdclient_fuzz
