#include <agent/change/DirectoryScan.h>
#include <agent/core/Memory.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <thread>

#include "../support/CaptureBytes.h"
#include "../support/RunningAgent.h"

namespace {

const std::thread::id mainThread = std::this_thread::get_id();
/// The number of allocations of other threads until one fails; under 0: none does.
std::atomic<int64_t> left{-1};
/// The same of the main thread.
std::atomic<int64_t> leftHere{-1};

void* allocated(void* memory) {
  auto& of = std::this_thread::get_id() == mainThread ? leftHere : left;
  if (of.load(std::memory_order_relaxed) >= 0) {
    if (of-- == 0) {
      std::free(memory);
      memory = nullptr;
    }
  }
  if (!memory) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(size_t size) { return allocated(std::malloc(size ? size : 1)); }
void* operator new(size_t size, std::align_val_t alignment) {
  const auto unit = static_cast<size_t>(alignment);
  return allocated(std::aligned_alloc(unit, (size + unit - 1) / unit * unit));
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, size_t, std::align_val_t) noexcept { std::free(memory); }

namespace {

using namespace TestSupport;

std::string rules(int count, const char* action) {
  std::string text = "ip access-list A\n";
  for (int i = 1; i <= count; ++i) text += fmt::format(" {} {} udp any any eq {}\n", i, action, i);
  return text + "interface eth1\n ip access-group A in\n";
}

size_t ruleCount(RunningAgent& agent, const char* list) {
  const Json shown = agent.show("access-lists", list);
  return shown.contains("error") ? 0 : shown.at("lists").at(0).at("rules").size();
}

TEST(Memory, AnApplyForWhichItRunsOutWhileItIsReadChangesNothing) {
  RunningAgent agent;
  agent.start(rules(3, "permit"));
  // With a mistake behind it the text is read and no more.
  constexpr int64_t plenty = 1000000;
  left = plenty;
  EXPECT_EQ(agent.apply(rules(40, "deny") + "nonsense\n").at("error").at("code"), "mistakes");
  const int64_t ofReading = plenty - left.exchange(-1);
  int refused = 0;
  for (int64_t count = 0; count < ofReading / 2; count += 1 + count / 8) {
    left = count;
    const Json answer = agent.apply(rules(40, "deny"));
    left = -1;
    // Streams of the library do without a buffer, so that not every failure is one of the change.
    if (!answer.contains("error")) {
      EXPECT_EQ(agent.apply(rules(3, "permit")).at("applied"), true);
      continue;
    }
    ++refused;
    EXPECT_EQ(answer.at("error").at("mistakes").at(0), "memory ran out");
    EXPECT_EQ(ruleCount(agent, "A"), 3u);
  }
  EXPECT_GT(refused, 10);
  EXPECT_EQ(agent.apply(rules(40, "deny")).at("applied"), true);
}

TEST(Memory, AConnectionForWhichItRunsOutIsClosed) {
  RunningAgent agent;
  agent.start("");
  auto& server = agent.plane().server();
  int refused = 0;
  for (int64_t count = 0; count < 100; ++count) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    leftHere = count;
    bool taken = true;
    try {
      server.take(ends[0], true);
    } catch (const std::bad_alloc&) {
      taken = false;
    }
    leftHere = -1;
    EXPECT_EQ(server.clientCount(), taken ? 1u : 0u);
    char none;
    EXPECT_EQ(recv(ends[1], &none, 1, MSG_DONTWAIT), taken ? -1 : 0) << "closed if it was not taken";
    close(ends[1]);
    agent.turns();
    if (taken) break;
    ++refused;
  }
  EXPECT_GT(refused, 1);
  EXPECT_EQ(server.clientCount(), 0u);
}

TEST(Memory, AFileForWhichItRunsOutIsTriedAgain) {
  RunningAgent agent;
  const std::map<std::string, std::string> files = {{"a.acl", "ip access-list B\n permit ip any any\n"}};
  agent.start("", &files);
  agent.advance(1.1);
  const auto bad = [&] { return agent.show("status").at("configuration").at("bad"); };
  const auto looked = [&](const std::function<bool()>& so) {
    agent.advance(1.1);
    agent.turnsUntil([&] {
      agent.pass(0.1);
      return !agent.plane().configuration().busy() && so();
    });
  };
  for (const int64_t count : {0, 3, 10, 30, 100}) {
    SCOPED_TRACE(count);
    left = count;
    agent.putFile("a.acl", fmt::format("ip access-list B\n permit ip any any\n{}", rules(60, "deny")));
    looked([&] { return !bad().empty(); });
    EXPECT_EQ(ruleCount(agent, "A"), 0u);
    EXPECT_EQ(ruleCount(agent, "B"), 1u) << "the old content is in force";
    const std::string wrong = bad().at(0).at("mistakes").at(0);
    EXPECT_TRUE(wrong.starts_with(agent.dirPath()) && wrong.ends_with(": memory ran out")) << wrong;
    left = -1;
    looked([&] { return bad().empty() && ruleCount(agent, "A") == 60; });
    agent.putFile("a.acl", "ip access-list B\n permit ip any any\n");
    looked([&] { return ruleCount(agent, "A") == 0; });
  }
}

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
const char* const notLimited = "sanitizers take more than a limit would allow";

TEST(Memory, IsAsMuchAsTheLimitsLeave) {
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

TEST(Memory, WhatOneTextMayHaveIsNotThereForTheNext) {
  if (!memoryCanBeLimited) GTEST_SKIP() << notLimited;
  EXPECT_EXIT(readTwo(), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(applyTwo(), testing::ExitedWithCode(0),
              "\"b: its 50001 lines and the texts before it would take ");
}

TEST(Memory, IsAsMuchAsTheControlGroupsLeave) {
  const TempDir dir;
  const auto group = [&](const std::string& name, const char* most, const char* used) {
    std::filesystem::create_directories(dir / name);
    writeFile(dir / (name + "/memory.max"), most);
    writeFile(dir / (name + "/memory.current"), used);
    writeFile(dir / (name + "/memory.stat"), "anon 5\nfile 130\nshmem 30\n");
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

TEST(Memory, AChangeThatIsTooLargeForItIsRefused) {
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

TEST(Memory, AClientForWhichItRunsOutIsClosed) {
  if (!memoryCanBeLimited) GTEST_SKIP() << notLimited;
  EXPECT_EXIT(sendTooMuch(), testing::ExitedWithCode(0), "");
}

}  // namespace
