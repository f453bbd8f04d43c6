#include <agent/change/DirectoryScan.h>
#include <agent/core/Memory.h>
#include <agent/proof/PacketSets.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "../support/CaptureBytes.h"
#include "Rules.h"

// What the limits of the process, of its control groups and of the machine leave. Each limit is set in a
// process of its own that begins anew, so that what earlier tests have left in the heap counts nowhere.

namespace {

using namespace TestSupport;

class MemoryLimits : public testing::Test {
 protected:
  MemoryLimits() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  ~MemoryLimits() override { GTEST_FLAG_SET(death_test_style, "fast"); }
};

/// Leaves the process so much of a resource and no more; `used`: which number of its statm tells what it has.
void leave(decltype(RLIMIT_AS) resource, int used, uint64_t octets) {
  std::ifstream statm("/proc/self/statm");
  uint64_t pages = 0;
  for (int i = 0; i < used; ++i) statm >> pages;
  const rlim_t limit = pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) + octets;
  const rlimit both{limit, limit};
  setrlimit(resource, &both);
}

constexpr uint64_t mebi = 1 << 20;
constexpr int sizeOfAll = 1, sizeOfData = 6;
const char* const notLimited =
    "a limit of memory is set here, and the address sanitizer reserves terabytes of it before main()";

TEST_F(MemoryLimits, IsAsMuchAsTheLimitsLeave) {
  EXPECT_FALSE(Agent::whyNoMemory(mebi));
  const auto wrong = Agent::whyNoMemory(mebi * mebi);
  ASSERT_TRUE(wrong);
  EXPECT_TRUE(wrong->starts_with("1024.00 GiB of memory, and ")) << *wrong;
  if (!memoryCanBeLimited) GTEST_SKIP() << notLimited;
  const auto isLimited = [](decltype(RLIMIT_AS) resource, int used) {
    leave(resource, used, 64 * mebi);
    std::exit(Agent::whyNoMemory(100 * mebi) && !Agent::whyNoMemory(30 * mebi) ? 0 : 1);
  };
  EXPECT_EXIT(isLimited(RLIMIT_AS, sizeOfAll), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(isLimited(RLIMIT_DATA, sizeOfData), testing::ExitedWithCode(0), "");
}

/// Works out a set of packets that takes some megabytes, with so little memory left; returns what is told.
std::string workedOut(uint64_t octets) {
  rlimit before{};
  getrlimit(RLIMIT_AS, &before);
  std::ifstream statm("/proc/self/statm");
  uint64_t pages = 0;
  statm >> pages;
  const rlimit less{pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) + octets, before.rlim_max};
  setrlimit(RLIMIT_AS, &less);
  std::string told = "done";
  try {
    constexpr unsigned bits = 60;
    const Proof::PacketSets sets(bits, {Kelp::Duration(3600)});
    std::mt19937_64 random;
    Proof::PacketSet all;
    for (int i = 0; i < 300; ++i) {
      Proof::PacketSet one = sets.all();
      for (int j = 0; j < 8; ++j) one = one & sets.bitIs(random() % bits, random() % 2 != 0);
      all = all | one;
      if (sets.memory() > 10 * mebi) break;
    }
  } catch (const Proof::LimitReached& limit) {
    told = limit.what();
  } catch (const std::bad_alloc&) {
    told = "no memory";
  }
  setrlimit(RLIMIT_AS, &before);
  return told;
}

// The library that works out sets leaves its tables in ruins when one of them finds no memory.
TEST_F(MemoryLimits, SetsOfPacketsEndWithASentenceAndOthersCanBeMade) {
  if (!memoryCanBeLimited) GTEST_SKIP() << notLimited;
  const auto told = [] {
    size_t ranOut = 0;
    for (uint64_t left = mebi; left < 8 * mebi; left += mebi / 8) {
      const std::string is = workedOut(left);
      if (is != "done" && is != "memory ran out") std::exit(1);
      ranOut += is != "done";
    }
    std::exit(ranOut > 4 && workedOut(1000 * mebi) == "done" ? 0 : 2);
  };
  EXPECT_EXIT(told(), testing::ExitedWithCode(0), "");
}

std::string denials(int count) {
  std::string text = "ip access-list A\n";
  for (int i = 0; i < count; ++i) text += fmt::format("deny tcp host 10.0.{}.{} any\n", i / 250, i % 250);
  return text;
}

/// Two texts are read, for each of which there is memory.
[[noreturn]] void readTwo() {
  const TempDir dir;
  const std::string text = denials(50000);  // 150 MB by the estimate
  const std::string a = dir / "a", b = dir / "b";
  writeFile(a, text);
  writeFile(b, text);
  leave(RLIMIT_AS, sizeOfAll, 200 * mebi);
  const std::string beside = ": its 50001 lines and the texts before it would take ";
  const auto isOnly = [](const std::vector<std::string>& wrong, const std::string& beginning) {
    return wrong.size() == 1 && wrong[0].starts_with(beginning);
  };
  int failed = 0;
  failed |= Agent::ConfigFiles().read({a}, "").empty() ? 0 : 1;
  failed |= isOnly(Agent::ConfigFiles().read({a, b}, ""), b + beside) ? 0 : 2;
  failed |= isOnly(Agent::ConfigFiles().read({}, dir.path()), b + beside) ? 0 : 4;
  Agent::DirectoryScan scan;
  scan.dir = dir.path();
  scan.run();
  failed |= scan.found["a"].wrong.empty() && isOnly(scan.found["b"].wrong, b + beside) ? 0 : 8;
  failed |= scan.found["b"].shortOfMemory ? 0 : 16;
  _exit(failed);
}

/// The same of what a client sends.
[[noreturn]] void applyTwo() {
  RunningAgent agent;
  agent.start(rules(3, "permit"));
  const std::string text = denials(50000);
  // Enough for one of them beside what the thread that reads them reserves, and not for both.
  leave(RLIMIT_AS, sizeOfAll, 278 * mebi);
  for (const char* name : {"a", "b"}) {
    for (size_t at = 0; at < text.size(); at += 60000)
      agent.ask({{"do", "text"}, {"name", name}, {"text", text.substr(at, 60000)}});
  }
  fmt::print(stderr, "{}\n", agent.ask({{"do", "apply"}}).dump());
  _exit(ruleCount(agent, "A") == 3 ? 0 : 1);
}

TEST_F(MemoryLimits, WhatOneTextMayHaveIsNotThereForTheNext) {
  if (!memoryCanBeLimited) GTEST_SKIP() << notLimited;
  EXPECT_EXIT(readTwo(), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(applyTwo(), testing::ExitedWithCode(0),
              "\"b: its 50001 lines and the texts before it would take ");
}

TEST_F(MemoryLimits, IsAsMuchAsTheControlGroupsLeave) {
  const TempDir dir;
  const auto group = [&](const std::string& name, const char* most, const char* used) {
    std::filesystem::create_directories(dir / name);
    writeFile(dir / (name + "/memory.max"), most);
    writeFile(dir / (name + "/memory.current"), used);
    writeFile(dir / (name + "/memory.stat"), "anon 5\nfile 100\n");
  };
  group("root", "5000\n", "1100\n");
  group("root/outer", "9000\n", "5100\n");
  group("root/outer/inner", "max\n", "300\n");
  group("root/other", "10\n", "0\n");
  struct Row {
    const char* why;
    const char* groups;
    uint64_t left;
  };
  for (const Row& row : {
           Row{"the root of a namespace has a limit", "0::/\n", 4000},
           Row{"the tightest of all counts", "0::/outer/inner\n", 4000},
           Row{"whose limit it may be", "1:cpu:/other\n0::/other\n", 10},
           Row{"groups of another version have none", "3:memory:/other\n", UINT64_MAX},
       }) {
    writeFile(dir / "groups", row.groups);
    EXPECT_EQ(Agent::leftOfGroups(dir / "groups", dir / "root"), row.left) << row.why;
  }
  group("root", "max\n", "0\n");
  writeFile(dir / "groups", "0::/outer/inner\n");
  EXPECT_EQ(Agent::leftOfGroups(dir / "groups", dir / "root"), 4000u) << "of the one above";
}

/// An agent with little memory is sent a large change, and then a small one.
[[noreturn]] void applyTooMuch() {
  RunningAgent agent;
  agent.start(rules(3, "permit"));
  leave(RLIMIT_AS, sizeOfAll, 200 * mebi);
  const std::string text = denials(300000);
  for (size_t at = 0; at < text.size(); at += 60000)
    agent.ask({{"do", "text"}, {"name", "large"}, {"text", text.substr(at, 60000)}});
  fmt::print(stderr, "{}\n", agent.ask({{"do", "apply"}}).dump());
  const bool kept = ruleCount(agent, "A") == 3;
  const bool goesOn = agent.apply(rules(5, "deny")).contains("applied") && ruleCount(agent, "A") == 5;
  _exit(kept && goesOn ? 0 : 1);
}

TEST_F(MemoryLimits, AChangeThatIsTooLargeForItIsRefused) {
  if (!memoryCanBeLimited) GTEST_SKIP() << notLimited;
  EXPECT_EXIT(applyTooMuch(), testing::ExitedWithCode(0),
              "large: its 300001 lines would take .* GiB of memory, and .* can be had");
}

/// A client sends more text than there is memory for.
[[noreturn]] void sendTooMuch() {
  RunningAgent agent;
  agent.start(rules(3, "permit"));
  const Json piece = {{"do", "text"}, {"name", "t"}, {"text", std::string(30000, '\n')}};
  const std::string request = Agent::lineOf(piece) + "\n";
  leave(RLIMIT_AS, sizeOfAll, 24 * mebi);
  bool closed = false;
  {
    SocketClient client(agent);
    for (int i = 0; i < 2000 && !closed; ++i) {
      for (size_t sent = 0; sent < request.size() && !client.closed(); agent.advance(0.01))
        sent += client.send(std::string_view(request).substr(sent));
      closed = client.closed() || client.line().empty();
    }
  }
  _exit(closed && ruleCount(agent, "A") == 3 ? 0 : 1);
}

TEST_F(MemoryLimits, AClientForWhichItRunsOutIsClosed) {
  if (!memoryCanBeLimited) GTEST_SKIP() << notLimited;
  EXPECT_EXIT(sendTooMuch(), testing::ExitedWithCode(0), "");
}

}  // namespace
