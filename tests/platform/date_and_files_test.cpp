#include "platform/date_format.hpp"
#include "platform/files.hpp"
#include "platform/uuid.hpp"
#include "support/sandbox.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <regex>
#include <set>

namespace tavrel {
namespace {

TEST(Timestamp, UsesColonsInTheDateAndTheZoneOffsetOrZ) {
  const double instant = 1773065133.75;  // 2026-03-09T14:05:33.75Z
  const std::pair<const char*, const char*> cases[] = {
      {"CET-1", "2026:03:09T15:05:33+01:00"},
      {"IST-5:30", "2026:03:09T19:35:33+05:30"},
      {"NST3:30", "2026:03:09T10:35:33-03:30"},
      {"<-10>10", "2026:03:09T04:05:33-10:00"},
      {"UTC0", "2026:03:09T14:05:33Z"},
  };
  // The zone is left at UTC for the tests after: none reads it but this one and the session's.
  for (const auto& [tz, expected] : cases) {
    ::setenv("TZ", tz, 1);
    ::tzset();
    EXPECT_EQ(localTimestamp(instant), expected) << tz;
  }
  EXPECT_EQ(localTimestamp(-0.5), "1969:12:31T23:59:59Z");  // fractions truncate toward the past
}

TEST(Uuid, IsThirtySixUpperCaseCharactersAndFresh) {
  const std::regex shape("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string uuid = makeUuidString();
    EXPECT_TRUE(std::regex_match(uuid, shape)) << uuid;
    seen.insert(uuid);
  }
  EXPECT_EQ(seen.size(), 100u);
}

TEST(Files, CreateReplacesAppendNeverCreatesAndModesAreOwnerOnly) {
  testing::TemporaryDirectory dir;
  // The documents directory is made on first use, with its parents.
  auto sim = SimPlatform::create();
  sim->setDocumentsDirectory(dir.path() + "/a/b/Documents");
  EXPECT_EQ(sim->documentsDirectory(), dir.path() + "/a/b/Documents");
  struct stat st {};
  ASSERT_EQ(::stat((dir.path() + "/a/b/Documents").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & (S_IFMT | 0777), S_IFDIR | 0700u);

  const std::string path = appendingPathComponent(dir.path(), "x.evt");
  EXPECT_FALSE(FileHandle::forWritingAtPath(path));  // a missing file is not created
  ASSERT_TRUE(createFileAtPath(path, "old contents"));
  ASSERT_TRUE(createFileAtPath(path, "GEV\n1\n"));
  {
    auto handle = FileHandle::forWritingAtPath(path);
    ASSERT_TRUE(handle);
    ASSERT_TRUE(handle->seekToEndOfFile());
    ASSERT_TRUE(handle->writeData("line\n"));
  }
  const ReadResult read = readWholeFile(path);
  EXPECT_EQ(std::tuple(read.error, read.data), std::tuple(std::nullopt, "GEV\n1\nline\n"));
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  EXPECT_TRUE(readWholeFile(appendingPathComponent(dir.path(), "gone.evt")).error);
  EXPECT_FALSE(createFileAtPath(dir.path() + "/no/such/dir/x.evt", "x"));
}

}  // namespace
}  // namespace tavrel
