#include "recording/event_file_reader.hpp"
#include "sample_events.hpp"

#include <gtest/gtest.h>

namespace tavrel::testing {
namespace {

TEST(EventFileReader, ReadsWellFormedFilesAndReportsWhereAFileIsDamaged) {
  for (const std::string& bytes : {kHeader, kMagic, kHeader + "{\"a\": \"x\", \"e\": \"y\", \"t\": 2147483647}\n",
                                   kHeader + "{\"a\": \"x\", \"e\": \"y\", \"t\": -2147483648}\n"}) {
    EXPECT_TRUE(readEventFile(bytes).wellFormed()) << bytes;
  }
  // A touch moved with no touch ended after it, and a record of another kind with no payload.
  const EventFileContents input = readEventFile(kMagic + kMoved + words({9, 1}));
  ASSERT_TRUE(input.wellFormed());
  ASSERT_EQ(input.inputRecords.size(), 2u);
  EXPECT_EQ(input.inputRecords[1].kind(), InputRecord::Kind::Other);
  EXPECT_TRUE(input.inputRecords[1].payload.empty());

  const struct {
    std::string bytes;
    std::size_t offset;
    std::optional<std::size_t> line;
    std::string message;
  } cases[] = {
      {"", 0, std::nullopt, "the file is empty"},
      {"PK\x03\x04", 0, std::nullopt, "not an event file"},
      {"GEV\n2\n" + kLine, 4, 2, "bad header"},
      {"GEV\n1", 5, 2, "ends inside the header"},
      {kHeader + kLine + "{\"a\": \"x\"", 47, 4, "truncated last line"},
      {kHeader + kLine + "{\"a\": \"say \"hi\"\", \"e\": \"x\", \"t\": 1}\n", 47, 4, "not one JSON object"},
      {kHeader + "[1, 2]\n", 6, 3, "not one JSON object"},
      {kHeader + "{\"a\": \"x\", \"e\": \"y\", \"t\": 1} {}\n", 6, 3, "not one JSON object"},
      {kHeader + "\n", 6, 3, "not one JSON object"},
      {kHeader + "{\"a\": \"x\", \"e\": \"y\"}\n", 6, 3, "no whole number \"t\""},
      {kHeader + "{\"a\": \"x\", \"e\": \"y\", \"t\": 2147483648}\n", 6, 3, "does not fit in 32 bits"},
      {kHeader + "{\"a\": \"x\", \"e\": \"y\", \"t\": -2147483649}\n", 6, 3, "does not fit in 32 bits"},
      {kHeader + "{\"a\": \"x\", \"e\": 1, \"t\": 1}\n", 6, 3, "no text \"e\""},
      {kHeader + "{\"a\": \"caf\x80\", \"e\": \"y\", \"t\": 1}\n", 6, 3, "column 11 is outside 7-bit ASCII"},
      {"INP\x03" + kMoved, 3, std::nullopt, "an unknown version"},
      {"INP", 3, std::nullopt, "ends inside the magic"},
      {kMagic + kMoved + kEnded.substr(0, 6), 36, std::nullopt, "truncated last record: 6 bytes"},
      {kMagic + words({1, 0, 5}), 8, std::nullopt, "word count 0 is less than 1"},
      {kMagic + words({1, 0x7FFFFFFF}), 8, std::nullopt, "runs past the end"},
  };
  for (const auto& c : cases) {
    const EventFileContents contents = readEventFile(c.bytes);
    EXPECT_FALSE(contents.wellFormed()) << c.message;
    ASSERT_EQ(contents.problems.size(), 1u) << c.message;
    EXPECT_EQ(contents.problems[0].offset, c.offset) << c.message;
    EXPECT_EQ(contents.problems[0].line, c.line) << c.message;
    EXPECT_NE(contents.problems[0].message.find(c.message), std::string::npos) << contents.problems[0].message;
  }
}

}  // namespace
}  // namespace tavrel::testing
