#include <fcntl.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "../../support/Sanitizers.h"
#include "../support/CaptureBytes.h"
#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;
namespace fs = std::filesystem;

std::string listOf(const char* name, const char* rule = "permit ip any any") {
  return fmt::format("ip access-list {}\n {}\n", name, rule);
}

/// The list, and so many lines behind it that reading them takes longer than what a test does meanwhile.
/// Of so many lines that it is still being read after a turn of the loop.
std::string longTextOf(const char* name) {
  return listOf(name) + std::string(sanitizers ? 1 << 20 : 8 << 20, '\n');
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
  /// Lets the files be looked at once more, and what is found be put in force.
  void look() {
    const auto& configuration = agent_.plane().configuration();
    agent_.advance(1.1);
    agent_.turnsUntil([&] { return !configuration.directory().looking() && !configuration.busy(); });
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

TEST_F(DirectoryFilesTest, AFileThatIsCalledLikeTheCommandLineIsRefused) {
  start();
  agent_.putFile("cli", listOf("TWO"));
  look();
  EXPECT_EQ(
      wrong(),
      path("cli") + ": \"cli\" is the name of the command line's configuration: a file needs another one");
  EXPECT_FALSE(defined("TWO"));
  fs::rename(path("cli"), path("two.acl"));
  look();
  EXPECT_EQ(bad(), Json::array());
  EXPECT_TRUE(defined("TWO"));
}

TEST_F(DirectoryFilesTest, WhatChangedWhileTheDirectoryCouldNotBeReadIsNotForgotten) {
  if (TestSupport::addressSanitizer)
    GTEST_SKIP()
        << "all descriptors are taken away here, and the sanitizer opens files to tell what it finds";
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

/// Leaves the process no watches, by a user namespace of its own; false where there can be none.
bool noWatchesAreLeft() {
  if (unshare(CLONE_NEWUSER) != 0) return false;
  writeFile("/proc/self/uid_map", "0 0 1\n");
  writeFile("/proc/sys/user/max_inotify_instances", "0\n");
  return inotify_init1(0) < 0;
}

TEST_F(DirectoryFilesTest, AreLookedAtWhereNothingCanBeWatched) {
  constexpr int noNamespace = 9;
  const auto inNamespace = [this] {
    if (!noWatchesAreLeft()) std::_Exit(noNamespace);
    start();
    agent_.putFile("two.acl", listOf("TWO"));
    lookUntil([&] { return defined("TWO"); });
    std::_Exit(defined("ONE") ? 0 : 1);
  };
  const auto ended = [](int status) {
    return WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == noNamespace);
  };
  EXPECT_EXIT(inNamespace(), ended, "changes in .* are seen once a second only: Too many open files|^$");
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

/// Two writes within one tick of the clock leave a file that looks the same.
TEST_F(DirectoryFilesTest, AFileIsReadAgainUntilItsTimeVouchesForItsContent) {
  constexpr int64_t second = 1'000'000'000;
  struct Row {
    const char* what;
    int64_t after;  ///< the change, the look comes
    bool looksTheSame;
    bool isReadAgain;
  };
  constexpr Row rows[] = {{"the clock was set back", -second, true, true},
                          {"at once", 0, true, true},
                          {"within a tick", second / 100, true, true},
                          {"later", second, true, false},
                          {"later, and it looks different", second, false, true}};
  const TempDir dir;
  fs::create_symlink(elsewhere_ / "one", dir / "one.acl");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::map<std::string, Agent::FileContent> seen;
    const auto isFound = [&](const char* list) {
      Agent::DirectoryScan scan;
      scan.dir = dir.path();
      scan.time = Agent::identityOf(dir / "one.acl")->changed + row.after;
      scan.seen = seen;
      scan.run();
      for (const auto& [name, file] : scan.found) seen[name] = *file.content;
      return !scan.found.empty() && scan.found.begin()->second.model &&
             scan.found.begin()->second.model->lists.contains({Acl::AclType::ip, list});
    };
    writeFile(elsewhere_ / "one", listOf("ONE"));
    EXPECT_TRUE(isFound("ONE"));
    writeFile(elsewhere_ / "one", listOf("TWO"));
    Agent::FileIdentity& looksLike = seen.at("one.acl").identity;
    const Agent::FileIdentity now = *Agent::identityOf(dir / "one.acl");
    looksLike = row.looksTheSame ? now : Agent::FileIdentity{now.device, now.inode, now.size, 0, 0};
    EXPECT_EQ(isFound("TWO"), row.isReadAgain);
  }
}

TEST_F(DirectoryFilesTest, WholeSecondsVouchForLess) {
  constexpr int64_t second = 1'000'000'000;
  Agent::FileIdentity file;
  file.changed = 7 * second;
  EXPECT_FALSE(Agent::isSettled(file, 9 * second)) << "all its times may be of two seconds";
  EXPECT_TRUE(Agent::isSettled(file, 9 * second + 1));
  file.changed = 7 * second + 1;
  EXPECT_FALSE(Agent::isSettled(file, 7 * second + second / 100));
  EXPECT_TRUE(Agent::isSettled(file, 8 * second));
}

TEST_F(DirectoryFilesTest, AFileIsReadWhenItChangedAndElseLeftAlone) {
  start();
  agent_.putFile("bad.acl", "nonsense\n");
  lookUntil([&] { return bad().size() == 1; });
  const int watch = inotify_init1(IN_NONBLOCK);
  inotify_add_watch(watch, agent_.dirPath().c_str(), IN_ACCESS);
  // Of files: the directory itself is read at each look.
  bool any = false;
  const auto reads = [watch, &any] {
    alignas(inotify_event) char events[4096];
    for (ssize_t size; (size = read(watch, events, sizeof events)) > 0;) {
      for (ssize_t at = 0; at < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(events + at);
        at += static_cast<ssize_t>(sizeof *event + event->len);
        any = any || !(event->mask & IN_ISDIR);
      }
    }
    return any;
  };
  // Until their times vouch for what is in them.
  for (int looks = 0; looks < 5000; ++looks) {
    look();
    if (!reads()) break;
    any = false;
  }
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

TEST_F(DirectoryFilesTest, ADirectoryAndAFileOfItsNameAreBadEachForItself) {
  const fs::path before = fs::current_path();
  fs::current_path(elsewhere_.path());
  agent_.dirPathIs("acl");
  const std::map<std::string, std::string> files = {{"acl", listOf("ONE")}, {"other", listOf("TWO")}};
  agent_.start("", &files);
  look();
  agent_.putFile("acl", "nonsense\n");
  lookUntil([&] { return bad().size() == 1; });
  {
    const NoDescriptors none;
    lookUntil([&] { return bad().size() == 2; });
    EXPECT_EQ(bad().at(0).at("mistakes").at(0), "acl: Too many open files");
    EXPECT_EQ(bad().at(0).at("kept"), true);
    EXPECT_EQ(bad().at(1).at("name"), "acl");
  }
  lookUntil([&] { return bad().size() == 1; });
  EXPECT_EQ(wrong().substr(0, 10), "acl/acl:1:") << "the file is as bad as before";
  fs::current_path(before);
}

TEST_F(DirectoryFilesTest, ADirectoryThatIsMovedAwayAndBackIsReadOn) {
  start();
  fs::rename(agent_.dirPath(), elsewhere_ / "config");
  lookUntil([&] { return bad().size() == 1; });
  EXPECT_EQ(wrong(), agent_.dirPath() + ": No such file or directory");
  EXPECT_TRUE(defined("ONE"));
  writeFile(elsewhere_ / "config/one.acl", listOf("CHANGED"));
  look();
  fs::rename(elsewhere_ / "config", agent_.dirPath());
  lookUntil([&] { return defined("CHANGED") && bad().empty(); });
  EXPECT_FALSE(defined("ONE"));
}

TEST_F(DirectoryFilesTest, AFileThatGrowsWhileItIsReadIsReadWhenItIsWhole) {
  start();
  std::atomic<bool> stop = false;
  agent_.putFile("one.acl", listOf("GROWN") + std::string(1 << 20, '\n'));
  std::thread writer([&] {
    std::ofstream file(path("one.acl"), std::ios::app);
    for (int written = 1; !stop; ++written) {
      file << '\n' << std::flush;
      // Not so large that to read it takes longer than all else here.
      if (written % (1 << 20) == 0) std::filesystem::resize_file(path("one.acl"), 1 << 20);
    }
  });
  lookUntil([&] { return bad().size() == 1; });
  EXPECT_EQ(wrong(), path("one.acl") + ": changed while it was read");
  stop = true;
  writer.join();
  lookUntil([&] { return defined("GROWN") && bad().empty(); });
  EXPECT_FALSE(defined("ONE"));
}

TEST_F(DirectoryFilesTest, AnApplyWhileFilesAreReadLosesNeither) {
  start();
  agent_.putFile("two.acl", longTextOf("TWO"));
  agent_.advance(1.1);
  agent_.turns(1);
  ASSERT_FALSE(defined("TWO"));
  ASSERT_TRUE(agent_.plane().configuration().directory().looking()) << "it is still being read";
  EXPECT_EQ(agent_.apply(listOf("APPLIED")).at("applied"), true);
  lookUntil([&] { return defined("TWO"); });
  EXPECT_TRUE(defined("APPLIED"));
  EXPECT_TRUE(defined("ONE"));
  look();
  EXPECT_TRUE(bad().empty());
}

TEST_F(DirectoryFilesTest, AConflictThatEndsWhileFilesAreReadIsTriedAgain) {
  RunningAgent& agent = agent_;
  const std::map<std::string, std::string> files = {{"a.acl", listOf("A")}};
  agent.start("port-channel po1 members eth5\n", &files);
  const auto has = [&](const char* list) { return !agent.show("access-lists", list).contains("error"); };
  const auto until = [&](const std::function<bool()>& so) {
    agent.turnsUntil([&] {
      agent.pass(0.1);
      return so();
    });
  };
  agent.putFile("b.acl", listOf("B") + "port-channel po2 members eth5\n");
  until([&] { return agent.show("status").at("configuration").at("bad").size() == 1; });
  agent.putFile("c.acl", longTextOf("C"));
  agent.advance(1.1);
  agent.turns(1);
  ASSERT_TRUE(agent.plane().configuration().directory().looking()) << "it is still being read";
  EXPECT_EQ(agent.apply("port-channel po1 members eth6\n").at("applied"), true);
  until([&] { return has("B") && has("C"); });
}

TEST_F(DirectoryFilesTest, AFileThatFailsAgainAndAgainDoesNotPutOffTheOthers) {
  for (const char* name : {"a", "b"}) writeFile(elsewhere_ / name, listOf("A"));
  Kiv::ManualClock clock;
  Agent::EventLoop loop(clock, clock);
  int looks = 0;
  std::vector<std::string> found;
  Agent::DirectoryFiles files(
      loop, elsewhere_.path(), {}, {}, [] { return true; },
      [&](Agent::DirectoryFiles::Found told) {
        ++looks;
        for (const auto& change : told.changes) found.push_back(change.source);
      });
  const auto lookOnce = [&] {
    const int before = looks;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    clock.advance(Kelp::Duration(1.1));
    while (looks == before && std::chrono::steady_clock::now() < end) loop.turn(1);
    ASSERT_GT(looks, before);
  };
  while (found.size() < 2) lookOnce();
  found.clear();
  files.failed("a", "no memory");
  const int from = looks;
  while (looks < from + 20) lookOnce();
  files.failed("b", "no memory");
  while (found.empty() && looks < from + 60) lookOnce();
  EXPECT_EQ(looks, from + 30);
  EXPECT_EQ(found, (std::vector<std::string>{"a", "b"}));
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
