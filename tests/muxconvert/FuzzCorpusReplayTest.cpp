// Replays the committed fuzz corpora through the fuzzers' own entry
// functions, so every seed (and every crash reproducer added there) keeps
// running in the normal and sanitizer builds.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "FuzzEntries.h"

namespace {

void ReplayDirectory(const char* name, int (*entry)(const uint8_t*, size_t)) {
  const std::filesystem::path directory = std::filesystem::path(MUXC_FUZZ_CORPUS_DIR) / name;
  ASSERT_TRUE(std::filesystem::is_directory(directory)) << directory;
  int files = 0;
  for (const auto& file : std::filesystem::directory_iterator(directory)) {
    std::ifstream in(file.path(), std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    EXPECT_EQ(entry(reinterpret_cast<const uint8_t*>(input.data()), input.size()), 0) << file.path();
    ++files;
  }
  EXPECT_GT(files, 0);
}

TEST(FuzzCorpusReplayTest, SdpParserCorpus) { ReplayDirectory("sdp_parser", &muxc_fuzz::FuzzSdpParser); }

TEST(FuzzCorpusReplayTest, RepackagerCorpus) { ReplayDirectory("repackager", &muxc_fuzz::FuzzRepackager); }

}  // namespace
