#include <agent/core/SavedText.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "../support/CaptureBytes.h"
#include "../support/Run.h"

#include <filesystem>

namespace {

using namespace TestSupport;
namespace fs = std::filesystem;

class SavedTextTest : public testing::Test {
 protected:
  size_t files() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(dir_ / ""), fs::directory_iterator()));
  }
  const TempDir dir_;
  const std::string path_ = dir_ / "a.acl";
};

TEST_F(SavedTextTest, KeepsWhatTheFileSaidBefore) {
  EXPECT_EQ(Agent::saveText(path_, "one"), std::nullopt);
  EXPECT_EQ(readFile(path_), "one");
  EXPECT_EQ(files(), 1u) << "nothing was there before";
  EXPECT_EQ(Agent::saveText(path_, "two"), std::nullopt);
  EXPECT_EQ(readFile(path_), "two");
  EXPECT_EQ(readFile(path_ + "~"), "one");
  EXPECT_EQ(Agent::saveText(path_, "three"), std::nullopt);
  EXPECT_EQ(readFile(path_ + "~"), "two");
  EXPECT_EQ(files(), 2u) << "nothing else is left";
}

TEST_F(SavedTextTest, KeepsTheModeAndTheLink) {
  writeFile(dir_ / "real.acl", "one");
  chmod((dir_ / "real.acl").c_str(), 0640);
  fs::create_symlink("real.acl", path_);
  EXPECT_EQ(Agent::saveText(path_, "two"), std::nullopt);
  EXPECT_TRUE(fs::is_symlink(path_));
  EXPECT_EQ(readFile(dir_ / "real.acl"), "two");
  EXPECT_EQ(readFile(dir_ / "real.acl~"), "one");
  struct stat saved {};
  ASSERT_EQ(stat(path_.c_str(), &saved), 0);
  EXPECT_EQ(saved.st_mode & 07777, 0640u);
}

TEST_F(SavedTextTest, LeavesTheFileAsItWasWhenItCannotBeWritten) {
  EXPECT_EQ(Agent::saveText(dir_ / "none/a.acl", "one"),
            fmt::format("{}: No such file or directory", dir_ / "none/a.acl"));
  fs::create_directory(path_);
  EXPECT_EQ(Agent::saveText(path_, "one"), path_ + ": is no regular file");
  EXPECT_EQ(files(), 1u);
}

}  // namespace
