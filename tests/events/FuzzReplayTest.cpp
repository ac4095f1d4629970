// Every seed of the event fuzz corpus goes through the fuzz entry, so what the
// fuzzer once found stays fixed in ordinary builds.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "FuzzEntries.h"

TEST(EventFuzzCorpus, SeedsReplay) {
  size_t replayed = 0;
  for (const auto& file : std::filesystem::directory_iterator(EVENTS_CORPUS_DIR)) {
    std::ifstream in(file.path(), std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    SCOPED_TRACE(file.path().string());
    EXPECT_EQ(events_fuzz::FuzzEventRequest(bytes.data(), bytes.size()), 0);
    ++replayed;
  }
  EXPECT_GT(replayed, 0u);
}
