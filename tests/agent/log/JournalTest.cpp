#include <agent/log/Journal.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace {

std::string streamOf(int fd, int moreDevice = 0, int moreInode = 0) {
  struct stat file {};
  EXPECT_EQ(fstat(fd, &file), 0);
  return fmt::format("{}:{}", file.st_dev + moreDevice, file.st_ino + moreInode);
}

TEST(Journal, IsKnownByDeviceAndInode) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const struct {
    const char* why;
    std::string named;
    bool is;
  } rows[] = {
      {"the same file", streamOf(ends[0]), true},
      {"another device", streamOf(ends[0], 1), false},
      {"another file", streamOf(ends[0], 0, 1), false},
      {"no number", "x", false},
      {"half of it", streamOf(ends[0]).substr(0, streamOf(ends[0]).find(':')), false},
      {"more behind it", streamOf(ends[0]) + " ", false},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Agent::isJournalStream(ends[0], row.named.c_str()), row.is) << row.why;
  EXPECT_FALSE(Agent::isJournalStream(ends[0], nullptr)) << "nothing in the environment";
  const std::string named = streamOf(ends[0]);
  close(ends[0]);
  close(ends[1]);
  EXPECT_FALSE(Agent::isJournalStream(ends[0], named.c_str())) << "closed";
}

TEST(Journal, IsLeftAloneWhenStandardErrorGoesElsewhere) {
  const char* before = std::getenv("JOURNAL_STREAM");
  const std::string kept = before ? before : "";
  setenv("JOURNAL_STREAM", streamOf(STDERR_FILENO, 1).c_str(), 1);
  EXPECT_FALSE(Agent::Journal().open());
  before ? setenv("JOURNAL_STREAM", kept.c_str(), 1) : unsetenv("JOURNAL_STREAM");
}

}  // namespace
