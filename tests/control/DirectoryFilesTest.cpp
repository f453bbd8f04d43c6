#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "../agent/CaptureBytes.h"
#include "RunningAgent.h"

namespace {

using namespace TestSupport;
namespace fs = std::filesystem;

std::string listOf(const char* name, const char* rule = "permit ip any any") {
  return fmt::format("ip access-list {}\n {}\n", name, rule);
}

class DirectoryFilesTest : public testing::Test {
 protected:
  /// An agent with one file, one.acl, that has the list ONE.
  void start() {
    const std::map<std::string, std::string> files = {{"one.acl", listOf("ONE")}};
    agent_.start("", &files);
    look();
  }
  bool defined(const char* list) { return !agent_.show("access-lists", list).contains("error"); }
  Json bad() { return agent_.show("status").at("configuration").at("bad"); }
  /// What is wrong with the one file, or the directory, that is bad.
  std::string wrong() {
    const Json all = bad();
    return all.size() == 1 ? all.at(0).at("mistakes").at(0).get<std::string>() : all.dump();
  }
  /// Lets the files be looked at once more.
  void look() {
    agent_.advance(1.1);
    agent_.turnsUntil([&] { return !agent_.plane().configuration().busy(); });
  }
  void lookUntil(const std::function<bool()>& so) {
    agent_.advance(1.1);
    agent_.turnsUntil([&] {
      agent_.pass(0.1);
      return so();
    });
  }
  std::string path(const char* name) { return agent_.dirPath() + "/" + name; }

  RunningAgent agent_;
  const TempDir elsewhere_;
};

/// Leaves the process no descriptor.
class NoDescriptors {
 public:
  NoDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const int next = dup(STDERR_FILENO);
    close(next);
    const rlimit none{static_cast<rlim_t>(next), before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit before_{};
};

TEST_F(DirectoryFilesTest, WhatChangedWhileTheDirectoryCouldNotBeReadIsNotForgotten) {
  start();
  agent_.putFile("one.acl", listOf("CHANGED"));
  agent_.putFile("two.acl", listOf("TWO"));
  {
    const NoDescriptors none;
    lookUntil([&] { return bad().size() == 1; });
    EXPECT_EQ(wrong(), agent_.dirPath() + ": Too many open files");
    EXPECT_EQ(bad().at(0).at("kept"), true);
    look();
    EXPECT_TRUE(defined("ONE")) << "what was in force is";
    EXPECT_FALSE(defined("CHANGED"));
  }
  lookUntil([&] { return defined("CHANGED") && defined("TWO"); });
  EXPECT_FALSE(defined("ONE"));
  EXPECT_TRUE(bad().empty());
}

TEST_F(DirectoryFilesTest, AFileThatCannotBeReadIsTriedAgain) {
  start();
  fs::rename(path("one.acl"), elsewhere_ / "one.acl");
  fs::create_symlink(elsewhere_ / "one.acl", path("one.acl"));
  fs::rename(elsewhere_ / "one.acl", elsewhere_ / "away");
  lookUntil([&] { return bad().size() == 1; });
  EXPECT_EQ(wrong(), path("one.acl") + ": No such file or directory");
  EXPECT_TRUE(defined("ONE"));
  fs::rename(elsewhere_ / "away", elsewhere_ / "one.acl");  // nobody is told of that
  lookUntil([&] { return bad().empty(); });
  EXPECT_TRUE(defined("ONE"));
}

TEST_F(DirectoryFilesTest, WhatIsBehindALinkIsFollowed) {
  start();
  writeFile(elsewhere_ / "two", listOf("TWO"));
  fs::create_symlink(elsewhere_ / "two", path("two.acl"));
  lookUntil([&] { return defined("TWO"); });
  writeFile(elsewhere_ / "two", listOf("OWT"));  // as large as before
  lookUntil([&] { return defined("OWT") && !defined("TWO"); });
}

TEST_F(DirectoryFilesTest, AFileIsReadWhenItChangedAndElseLeftAlone) {
  start();
  agent_.putFile("bad.acl", "nonsense\n");
  lookUntil([&] { return bad().size() == 1; });
  const int watch = inotify_init1(IN_NONBLOCK);
  inotify_add_watch(watch, agent_.dirPath().c_str(), IN_ACCESS);
  const auto reads = [watch] {
    pollfd asked{watch, POLLIN, 0};
    return poll(&asked, 1, 0) == 1;
  };
  for (int i = 0; i < 5; ++i) look();
  EXPECT_FALSE(reads()) << "neither a good nor a bad file is read again and again";
  const double applied = agent_.show("status").at("configuration").at("sources").at(1).at("applied");
  for (const char* name : {"bad.acl", "one.acl"})
    fs::last_write_time(path(name), fs::file_time_type::clock::now());
  lookUntil(reads);
  look();
  EXPECT_EQ(bad().size(), 1u) << "bad as before";
  EXPECT_EQ(agent_.show("status").at("configuration").at("sources").at(1).at("applied"), applied)
      << "the same content is no change";
  close(watch);
}

TEST_F(DirectoryFilesTest, AContentThatSaysTheSameIsNoChange) {
  start();
  const double applied = agent_.show("status").at("configuration").at("sources").at(1).at("applied");
  agent_.putFile("one.acl", "nonsense\n");
  lookUntil([&] { return bad().size() == 1; });
  agent_.putFile("one.acl", "! a comment\n" + listOf("ONE"));
  lookUntil([&] { return bad().empty(); });
  EXPECT_EQ(agent_.show("status").at("configuration").at("sources").at(1).at("applied"), applied);
}

TEST_F(DirectoryFilesTest, OnlyFilesAreRead) {
  start();
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  fs::create_symlink("/dev/zero", path("zero"));
  lookUntil([&] { return bad().size() == 2; });
  EXPECT_EQ(bad().at(0).at("mistakes").at(0), path("pipe") + ": is a pipe, not a regular file");
  EXPECT_EQ(bad().at(1).at("mistakes").at(0), path("zero") + ": is a device, not a regular file");
  EXPECT_EQ(bad().at(0).at("kept"), false);
  EXPECT_EQ(agent_.apply(listOf("APPLIED")).at("applied"), true);

  ASSERT_EQ(mkfifo((elsewhere_ / "pipe").c_str(), 0600), 0);
  fs::rename(elsewhere_ / "pipe", path("one.acl"));
  lookUntil([&] { return bad().size() == 3; });
  EXPECT_TRUE(defined("ONE")) << "its last content stays";
  for (const char* name : {"pipe", "zero", "one.acl"}) fs::remove(path(name));
  lookUntil([&] { return bad().empty() && !defined("ONE"); });
}

TEST_F(DirectoryFilesTest, AFileIsNoLargerThanAllowedNorAllTogether) {
  agent_.textLimitsAre({100, 150});
  start();
  const std::string comment = "! " + std::string(71, 'x') + "\n";
  agent_.putFile("large.acl", listOf("LARGE") + comment);
  lookUntil([&] { return bad().size() == 1; });
  EXPECT_NE(wrong().find("large.acl: is larger than the "), std::string::npos) << wrong();
  agent_.putFile("large.acl", comment);
  lookUntil([&] { return bad().empty(); });
  agent_.putFile("zmore.acl", listOf("MORE"));
  lookUntil([&] { return bad().size() == 1; });
  EXPECT_NE(wrong().find("zmore.acl: with the texts before it"), std::string::npos) << wrong();
  fs::remove(path("large.acl"));
  lookUntil([&] { return defined("MORE") && bad().empty(); });
}

TEST_F(DirectoryFilesTest, AFileThatIsStillAConflictIsNotReadAgain) {
  const std::map<std::string, std::string> files = {{"a.acl", "port-channel po1 members eth5\n"}};
  agent_.start("", &files);
  look();
  agent_.putFile("b.acl", listOf("B") + "port-channel po2 members eth5\n");
  lookUntil([&] { return bad().size() == 1; });
  fs::last_write_time(path("b.acl"), fs::file_time_type::clock::now());
  look();
  EXPECT_EQ(bad().size(), 1u);
  agent_.putFile("a.acl", "port-channel po1 members eth6\n");
  lookUntil([&] { return bad().empty() && defined("B"); });
}

}  // namespace
