#include "../support/CaptureBytes.h"
#include "../support/Run.h"

#include <agent/change/ConfigFiles.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

using namespace TestSupport;
namespace fs = std::filesystem;

TEST(ConfigFiles, EachFileOfADirectoryIsASourceAndSomeFilesAreNone) {
  const TempDir dir;
  writeFile(dir / "b", "ip access-list B\n");
  writeFile(dir / "a", "ip access-list A\n");
  writeFile(dir / ".hidden", "nonsense\n");
  writeFile(dir / "a~", "nonsense\n");
  fs::create_directory(dir / "sub");
  Agent::ConfigFiles files;
  EXPECT_THAT(files.read({}, dir.path()), testing::IsEmpty());
  ASSERT_EQ(files.sources().inputs.size(), 2u);
  EXPECT_TRUE(files.sources().inputs.at("a").lists.contains({Acl::AclType::ip, "A"}));
  EXPECT_TRUE(files.sources().inputs.at("b").lists.contains({Acl::AclType::ip, "B"}));
}

TEST(ConfigFiles, AnEmptyFileIsAConfiguration) {
  const TempDir dir;
  writeFile(dir / "a", "");
  Agent::ConfigFiles files;
  EXPECT_THAT(files.read({dir / "a", "/dev/null"}, ""), testing::IsEmpty());
  EXPECT_EQ(files.sources().commandLine, Config::Model());
}

TEST(ConfigFiles, AFileCannotBeTakenForTheCommandLine) {
  const TempDir dir;
  writeFile(dir / "cli", "ip access-list A\n");
  writeFile(dir / "cli.acl", "ip access-list B\n");
  Agent::ConfigFiles files;
  EXPECT_THAT(
      files.read({}, dir.path()),
      testing::ElementsAre((dir / "cli") + ": \"cli\" is the name of the command line's configuration: "
                                           "a file needs another one"));
  EXPECT_EQ(files.sources().inputs.size(), 1u);
}

TEST(ConfigFiles, ALinkToNowhereIsReported) {
  const TempDir dir;
  fs::create_symlink(dir / "nowhere", dir / "link");
  Agent::ConfigFiles files;
  EXPECT_THAT(files.read({}, dir.path()),
              testing::ElementsAre((dir / "link") + ": No such file or directory"));
}

TEST(ConfigFiles, WhatIsNoFileIsReportedAndNotWaitedFor) {
  const TempDir dir;
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
  fs::create_symlink("/dev/zero", dir / "zero");
  Agent::ConfigFiles files;
  EXPECT_THAT(files.read({}, dir.path()),
              testing::ElementsAre((dir / "pipe") + ": is a pipe, not a regular file",
                                   (dir / "zero") + ": is a device, not a regular file"));
  EXPECT_THAT(files.read({dir.path()}, ""),
              testing::ElementsAre(dir.path() + ": is a directory, not a regular file"));
}

TEST(ConfigFiles, ATextIsNoLargerThanAllowedNorAllTogether) {
  const TempDir dir;
  writeFile(dir / "a", "! 234567\n");
  writeFile(dir / "b", "! 2345678\n");
  const auto wrong = [&](std::vector<std::string> paths, const std::string& folder,
                         Agent::TextLimits limits) {
    Agent::ConfigFiles files;
    return fmt::format("{}", fmt::join(files.read(paths, folder, limits), "\n"));
  };
  EXPECT_EQ(wrong({dir / "a", dir / "b"}, dir.path(), {10, 38}), "");
  EXPECT_THAT(wrong({dir / "a", dir / "b"}, dir.path(), {10, 37}),
              testing::StartsWith((dir / "b") + ": with the texts before it is more than the "));
  EXPECT_THAT(wrong({dir / "a", dir / "b"}, "", {9, 100}),
              testing::StartsWith((dir / "b") + ": is larger than the "));
  EXPECT_THAT(wrong({}, dir.path(), {9, 100}), testing::StartsWith((dir / "b") + ": is larger than the "));
  EXPECT_THAT(wrong({"/dev/zero"}, "", {1 << 20, 2 << 20}),
              "/dev/zero: is larger than the 1 MiB that a configuration text may have");
}

TEST(ConfigFiles, APipeThatTheUserNamesIsReadToItsEnd) {
  const TempDir dir;
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
  std::thread writer([&] {
    std::ofstream pipe(dir / "pipe");
    pipe << "ip access-list A\n" << std::flush << std::string(100000, '\n') << " permit ip any any\n";
  });
  Agent::ConfigFiles files;
  EXPECT_THAT(files.read({dir / "pipe"}, ""), testing::IsEmpty());
  writer.join();
  EXPECT_EQ(files.sources().commandLine.lists.at({Acl::AclType::ip, "A"}).rules.size(), 1u);
}

TEST(ConfigFiles, StandardInputIsNotReadAgain) {
  Agent::TextReader reader({});
  std::vector<std::string> wrong;
  EXPECT_FALSE(reader.read("-", Agent::TextReader::Named::byPlace, wrong));
  EXPECT_THAT(wrong, testing::ElementsAre("standard input cannot be read again"));
}

TEST(ConfigFiles, AFileThatGrowsWhileItIsReadIsRefused) {
  const TempDir dir;
  writeFile(dir / "a", std::string(30 << 20, '\n'));
  std::atomic<bool> growing = false, stop = false;
  std::thread writer([&] {
    std::ofstream file(dir / "a", std::ios::app);
    while (!stop) {
      file << '\n' << std::flush;
      growing = true;
    }
  });
  while (!growing) std::this_thread::yield();
  Agent::ConfigFiles files;
  // On a machine with other work the file may be read between two turns of the writer.
  std::vector<std::string> wrong;
  for (int i = 0; i < 1000 && wrong.empty(); ++i) wrong = files.read({dir / "a"}, "");
  EXPECT_THAT(wrong, testing::ElementsAre((dir / "a") + ": changed while it was read"));
  stop = true;
  writer.join();
}

}  // namespace
