// The relay's view of an RTSP byte stream: wherever the reads split it, the
// pieces add up to the same frames and messages, with their starts and ends.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RtspFraming.h"

namespace {

std::string Frame(char channel, size_t payload) {
  return std::string("$") + channel + char(payload >> 8) + char(payload & 0xff) + std::string(payload, 'x');
}

TEST(RtspFraming, UnitsAreTheSameWhateverTheReadsSplit) {
  const std::vector<std::string> units = {
      "RTSP/1.0 200 OK\r\nCSeq: 2\r\ncontent-LENGTH: 5\r\n\r\nv=0\r\n",
      Frame(0, 1400),
      Frame(1, 0),
      Frame(0, 3),
      "GET_PARAMETER rtsp://10.0.0.1:554/axis-media/media.amp?x=1 RTSP/1.0\r\nCSeq: 7\r\n\r\n",
      Frame(0, 70000 % 65536)};
  std::string stream;
  for (const std::string& unit : units) stream += unit;
  for (size_t chunk : {size_t(1), size_t(2), size_t(3), size_t(7), size_t(1000), stream.size()}) {
    camsim::StreamFramer framer;
    std::vector<std::string> seen;
    for (size_t at = 0; at < stream.size();) {
      const size_t size = std::min(chunk, stream.size() - at);
      const camsim::StreamPiece piece = framer.Next(stream.data() + at, size);
      ASSERT_GE(piece.length, 1u);
      if (piece.starts) seen.emplace_back();
      seen.back().append(stream, at, piece.length);
      EXPECT_EQ(piece.frame, seen.back()[0] == '$');
      EXPECT_TRUE(piece.unitLength == 0 || piece.unitLength == units[seen.size() - 1].size());
      EXPECT_EQ(piece.ends, seen.back().size() == units[seen.size() - 1].size()) << chunk;
      at += piece.length;
    }
    EXPECT_EQ(seen, units) << "reads of " << chunk;
  }
  EXPECT_EQ(camsim::RequestPath(units[4]), "/axis-media/media.amp");
  EXPECT_EQ(camsim::RequestCSeq(units[4]), 7);
}

}  // namespace
