// The protocol halves of capture and replay, without sockets: the relay's
// message reader and what it keeps, the replay's operation keys, and media
// looped with continuous RTP numbering.
#include <gtest/gtest.h>

#include "CaptureHttp.h"
#include "replay/MediaLoop.h"
#include "replay/ReplayMatcher.h"

namespace {

TEST(CaptureHttp, ReadsWhatCamerasSendInPiecesOfAnySize) {
  const std::string chunked =
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n";
  const struct {
    const char* what;
    std::string bytes;
    bool closeAtEnd;
    bool complete;
    std::string body;
    std::string rest;
  } kCases[] = {
      {"chunked", chunked, false, true, "hello world", ""},
      {"length, next answer behind", "HTTP/1.1 401 X\r\nContent-Length: 3\r\n\r\nabcHTTP/1.1", false, true, "abc",
       "HTTP/1.1"},
      {"to the close", "HTTP/1.0 200 OK\r\n\r\nall of it", true, true, "all of it", ""},
      {"cut before its length", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc", true, false, "abc", ""},
      {"length that is no number", "HTTP/1.1 200 OK\r\nContent-Length: 1x\r\n\r\n", false, false, "", ""},
      {"not HTTP", "SSH-2.0-OpenSSH\r\n\r\n", false, false, "", ""},
  };
  for (const auto& c : kCases) {
    for (const size_t piece : {size_t{1}, size_t{7}, c.bytes.size()}) {
      HttpMessageReader reader(HttpMessageReader::Kind::Response);
      for (size_t at = 0; at < c.bytes.size(); at += piece) {
        reader.Feed(c.bytes.data() + at, std::min(piece, c.bytes.size() - at));
      }
      if (c.closeAtEnd) reader.FeedEnd();
      EXPECT_EQ(reader.Complete(), c.complete) << c.what << " in pieces of " << piece;
      if (!c.complete) continue;
      EXPECT_EQ(reader.Body(), c.body) << c.what << " in pieces of " << piece;
      EXPECT_EQ(reader.Rest(), c.rest) << c.what;
      EXPECT_EQ(reader.Raw() + reader.Rest(), c.bytes) << c.what << ": the client gets the camera's own bytes";
    }
  }
}

TEST(CaptureHttp, CredentialsGoToTheCameraButNeverIntoTheCapture) {
  const std::string request =
      "POST /vapix/services HTTP/1.1\r\nAuthorization: Digest username=\"u\", response=\"0123\"\r\n"
      "Cookie: s=1\r\nExpect: 100-continue\r\nContent-Type: application/soap+xml\r\nContent-Length: 2\r\n\r\nok";
  HttpMessageReader reader(HttpMessageReader::Kind::Request);
  reader.Feed(request.data(), request.size());
  ASSERT_TRUE(reader.Complete());
  const std::string forwarded = ForwardedRequest(reader);
  EXPECT_NE(forwarded.find("Authorization: Digest"), std::string::npos);
  EXPECT_EQ(forwarded.find("Expect"), std::string::npos) << "the relay answered it";
  EXPECT_EQ(KeptRequestHeaders(reader.Headers()), (HttpHeaders{{"Content-Type", "application/soap+xml"}}));
  EXPECT_EQ(ChallengeKind("Digest realm=\"AXIS_1\", nonce=\"abc\", algorithm=MD5, qop=\"auth\", opaque=\"z\""),
            "Digest realm=\"AXIS_1\", algorithm=MD5, qop=\"auth\"");
  std::string body = "pass=secret&again=secret";
  EXPECT_EQ(Redact(body, "secret"), 2u);
  EXPECT_EQ(body, "pass=********&again=********");
}

TEST(ReplayMatcher, OperationsIgnoreWhatChangesFromRunToRun) {
  const std::string soap =
      "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Body>"
      "<AddActionRule xmlns=\"x\"><Name>platform_custom_name_";
  const struct {
    std::string a, b;
    bool sameStrict, sameLoose;
  } kCases[] = {
      {soap + "1</Name></AddActionRule></s:Body></s:Envelope>", soap + "7</Name></AddActionRule></s:Body></s:Envelope>",
       true, true},
      {"?action=list&group=Brand", "?group=Brand&action=list", true, true},
      {"?action=list&group=Brand", "?action=list&group=Network", false, true},
      {"?starttime=2024-06-21T15:17:00Z", "?starttime=2026-11-23T08:00:00Z", true, true},
      {R"({"method":"getAllProperties"})", R"({"method":"getProperties"})", false, false},
  };
  for (const auto& c : kCases) {
    const auto key = [](const std::string& text) {
      return text[0] == '?' ? camsim::OperationOf("GET", "/axis-cgi/x.cgi", text.substr(1), "")
                            : camsim::OperationOf("POST", "/vapix/services", "", text);
    };
    EXPECT_EQ(key(c.a).strict == key(c.b).strict, c.sameStrict) << c.a << " / " << c.b;
    EXPECT_EQ(key(c.a).loose == key(c.b).loose, c.sameLoose) << c.a << " / " << c.b;
  }
}

std::string RtpFrame(uint16_t seq, uint32_t time) {
  std::string frame = {'$', 0, 0, 12, static_cast<char>(0x80), 96};
  frame += {static_cast<char>(seq >> 8), static_cast<char>(seq & 0xff)};
  for (int i = 0; i < 4; ++i) frame += static_cast<char>(time >> (24 - 8 * i));
  return frame + std::string(4, 'S');
}

TEST(MediaLoop, LiveGoesOnWithoutAJumpAndARecordingEnds) {
  const std::string media = RtpFrame(65534, 1000) + RtpFrame(65535, 4600) + RtpFrame(0, 8200);
  camsim::MediaLoop live(media, true);
  std::string frame;
  double due = 0;
  const struct {
    uint16_t seq;
    uint32_t time;
    double due;
  } kExpected[] = {{65534, 1000, 0}, {65535, 4600, 0.04}, {0, 8200, 0.08}, {1, 11800, 0.12}, {2, 15400, 0.16}};
  for (const auto& e : kExpected) {
    ASSERT_TRUE(live.Next(&frame, &due));
    EXPECT_EQ(((uint8_t)frame[6] << 8) | (uint8_t)frame[7], e.seq);
    EXPECT_EQ(((uint32_t)(uint8_t)frame[8] << 24) | ((uint8_t)frame[9] << 16) | ((uint8_t)frame[10] << 8) |
                  (uint8_t)frame[11],
              e.time);
    EXPECT_NEAR(due, e.due, 1e-9);
  }
  camsim::MediaLoop recording(media, false);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(recording.Next(&frame, &due));
  ASSERT_TRUE(recording.Next(&frame, &due)) << "a capture cut before the BYE ends with one";
  EXPECT_EQ(frame[1], 1);
  EXPECT_EQ(static_cast<uint8_t>(frame[5]), 203);
  EXPECT_FALSE(recording.Next(&frame, &due));
}

}  // namespace
