// The recording list answer and the month view's marks, as pure code.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "FuzzEntries.h"
#include "recordings/RecordingList.h"

namespace {

using recordings::ListParse;

std::string Recording(const std::string& id, const std::string& stop) {
  return "<recording recordingid=\"" + id + "\" starttime=\"2024-06-2" + id + "T08:00:00Z\" stoptime=\"" + stop +
         "\" recordingstatus=\"" + (stop.empty() ? "recording" : "completed") + "\"><video/></recording>";
}

std::string Answer(const std::string& recordings) {
  return "<?xml version=\"1.0\"?><root><recordings numberofrecordings=\"9\">" + recordings + "</recordings></root>";
}

TEST(RecordingList, AnswersBecomeSortedRecords) {
  const std::string past = "2024-06-21T18:00:00.000Z", future = "2024-06-30T00:00:00.000Z";
  struct Case {
    std::string answer, stopText;
    ListParse result;
    std::string records;  // "id stop in-progress" of each record, in list order
  };
  const Case cases[] = {
      {Answer(Recording("2", "s2") + Recording("1", "s1")), future, ListParse::kOk, "1 s1 0|2 s2 0|"},
      // Still recording: the window's stop when it lies in the past, else the present.
      {Answer(Recording("1", "")), past, ListParse::kOk, "1 " + past + " 1|"},
      {Answer(Recording("1", "")), future, ListParse::kOk, "1 2024-06-25T00:00:00Z 1|"},
      {Answer(Recording("1", "2024-07-01T00:00:00Z")), past, ListParse::kOk, "1 2024-07-01T00:00:00Z 0|"},
      {Answer("<note/>"), future, ListParse::kOk, ""},
      {"<rootx><recordings/></rootx>", future, ListParse::kNoRoot, ""},
      {"", future, ListParse::kNoRoot, ""},
      {"{\"root\": {\"recordings\": []}}", future, ListParse::kNoRoot, ""},
      {"<root><error code=\"1\" description=\"Missing parameter\"/></root>", future, ListParse::kNoRecordings, ""},
  };
  for (const Case& c : cases) {
    std::vector<RecordingInfo> list;
    EXPECT_EQ(recordings::ParseRecordingList(c.answer, c.stopText, "2024-06-25T00:00:00Z", list), c.result) << c.answer;
    std::string records;
    for (const RecordingInfo& r : list) records += r.recordingId + " " + r.stopTime + (r.inProgress ? " 1|" : " 0|");
    EXPECT_EQ(records, c.records) << c.answer;
  }
}

// Every seed of the fuzz corpus, so that what the fuzzer once found stays fixed.
TEST(RecordingList, FuzzCorpusReplays) {
  size_t replayed = 0;
  for (const auto& file : std::filesystem::directory_iterator(RECORDINGS_CORPUS_DIR)) {
    std::ifstream in(file.path(), std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(recordings_fuzz::FuzzRecordingList(bytes.data(), bytes.size()), 0) << file.path();
    ++replayed;
  }
  EXPECT_GT(replayed, 0u);
}

}  // namespace
