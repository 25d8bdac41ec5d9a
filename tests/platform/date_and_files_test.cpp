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

class LocalTimeZone {
 public:
  explicit LocalTimeZone(const char* tz) {
    if (const char* old = std::getenv("TZ")) saved_ = old;
    ::setenv("TZ", tz, 1);
    ::tzset();
  }
  ~LocalTimeZone() {
    if (saved_) ::setenv("TZ", saved_->c_str(), 1); else ::unsetenv("TZ");
    ::tzset();
  }

 private:
  std::optional<std::string> saved_;
};

TEST(Timestamp, UsesColonsInTheDateAndTheZoneOffsetOrZ) {
  const double instant = 1773065133.75;  // 2026-03-09T14:05:33.75Z
  const std::pair<const char*, const char*> cases[] = {
      {"UTC0", "2026:03:09T14:05:33Z"},
      {"CET-1", "2026:03:09T15:05:33+01:00"},
      {"IST-5:30", "2026:03:09T19:35:33+05:30"},
      {"NST3:30", "2026:03:09T10:35:33-03:30"},
      {"<-10>10", "2026:03:09T04:05:33-10:00"},
  };
  for (const auto& [tz, expected] : cases) {
    LocalTimeZone zone(tz);
    EXPECT_EQ(localTimestamp(instant), expected) << tz;
  }
  LocalTimeZone utc("UTC0");
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
  EXPECT_FALSE(read.error);
  EXPECT_EQ(read.data, "GEV\n1\nline\n");
  struct stat st {};
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  const ReadResult missing = readWholeFile(appendingPathComponent(dir.path(), "gone.evt"));
  EXPECT_TRUE(missing.error);
  EXPECT_FALSE(createFileAtPath(dir.path() + "/no/such/dir/x.evt", "x"));
}

TEST(Files, DocumentsDirectoryIsMadeOnFirstUse) {
  testing::TemporaryDirectory dir;
  auto sim = SimPlatform::create();
  sim->setDocumentsDirectory(dir.path() + "/a/b/Documents");
  EXPECT_EQ(sim->documentsDirectory(), dir.path() + "/a/b/Documents");
  struct stat st {};
  ASSERT_EQ(::stat((dir.path() + "/a/b/Documents").c_str(), &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
  EXPECT_EQ(st.st_mode & 0777, 0700u);
}

}  // namespace
}  // namespace tavrel
