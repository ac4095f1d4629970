// Replays the committed fuzz corpora through the fuzzers' own entry
// functions, so every seed (and every crash reproducer added there) keeps
// running in the normal and sanitizer builds.
#include <gtest/gtest.h>

#include <filesystem>

#include "FuzzEntries.h"
#include "MediaTools.h"

namespace {

void ReplayDirectory(const char* name, int (*entry)(const uint8_t*, size_t)) {
  const std::filesystem::path directory = std::filesystem::path(MUXC_FUZZ_CORPUS_DIR) / name;
  ASSERT_TRUE(std::filesystem::is_directory(directory)) << directory;
  int files = 0;
  for (const auto& file : std::filesystem::directory_iterator(directory)) {
    const netcam_test::Bytes input = netcam_test::ReadFileBytes(file.path().string());
    EXPECT_EQ(entry(input.data(), input.size()), 0) << file.path();
    ++files;
  }
  EXPECT_GT(files, 0);
}

TEST(FuzzCorpusReplayTest, SdpParserCorpus) { ReplayDirectory("sdp_parser", &muxc_fuzz::FuzzSdpParser); }

TEST(FuzzCorpusReplayTest, RepackagerCorpus) { ReplayDirectory("repackager", &muxc_fuzz::FuzzRepackager); }

}  // namespace
