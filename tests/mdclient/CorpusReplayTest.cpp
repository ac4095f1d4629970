// Every seed of the fuzz corpus goes through the fuzz entry points, so a
// crash the fuzzer once found stays fixed in ordinary builds.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "FuzzEntries.h"

namespace {

size_t ReplayCorpus(const std::string& name, int (*entry)(const uint8_t*, size_t)) {
  size_t replayed = 0;
  for (const auto& file : std::filesystem::directory_iterator(std::string(MDCLIENT_CORPUS_DIR) + "/" + name)) {
    std::ifstream in(file.path(), std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    SCOPED_TRACE(file.path().string());
    EXPECT_EQ(entry(bytes.data(), bytes.size()), 0);
    ++replayed;
  }
  return replayed;
}

TEST(MdcFuzzCorpusTest, RtspStreamSeedsReplay) {
  EXPECT_GT(ReplayCorpus("rtsp_stream", mdclient_fuzz::FuzzRtspStream), 0u);
}

TEST(MdcFuzzCorpusTest, RtspUrlSeedsReplay) { EXPECT_GT(ReplayCorpus("rtsp_url", mdclient_fuzz::FuzzRtspUrl), 0u); }

}  // namespace
