#include <agent/state/StateKeeper.h>
#include <gmock/gmock.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "../../support/FailingMemory.h"
#include "../support/Run.h"
#include "Rules.h"

// Memory runs out at every allocation of the loop, which copies the state, and of the thread that writes it.
// The agent says so and goes on, and the file has the state when memory is there again.

namespace {

using namespace Agent;
using namespace TestSupport;

class StateWithoutMemory : public testing::Test {
 protected:
  /// When it runs out: once while the loop copies, for good from some point of the last copy on, or for good
  /// in the thread that writes.
  enum class When { copying, ending, writing };

  std::unique_ptr<StateFile> opened() {
    std::string message;
    auto file = StateFile::open(dir_ / "state", &message);
    EXPECT_EQ(message, "");
    return file;
  }
  /// Applies so many rules, and has their state kept, at least twice.
  void keep(int size, const std::function<void()>& first, const std::function<void()>& last) {
    EXPECT_TRUE(agent_.apply(rules(size, "deny")).contains("applied"));
    agent_.turns();
    auto keeper = std::make_unique<StateKeeper>(agent_.core(), opened());
    first();
    agent_.turns();
    last();
    keeper = nullptr;
  }
  /// Has it run out at every allocation. Returns what people are told.
  std::string failEverywhere(When when) {
    agent_.start("");
    int failures = 0, before = 0, size = 5;
    const Threads threads = when == When::writing ? Threads::others : Threads::first;
    testing::internal::CaptureStderr();
    for (int64_t count = 0, left = -1; left < 0 && !HasFailure(); count += 1 + count / 16) {
      const auto begin = [&] { failAt(threads, count, when == When::copying ? 1 : INT64_MAX); };
      const auto end = [&] { left = stopFailing(threads); };
      if (when == When::copying) {
        keep(size, begin, end);
      } else if (when == When::ending) {
        keep(
            size, [] {}, begin);
        end();
      } else {
        keep(size, begin, [] {});
        end();
      }
      // Where all have failed since, it stands at the first of them.
      if (when != When::copying && left == 0) left = -1;
      const auto kept = int(opened()->state().rules.size());
      EXPECT_TRUE(kept == size || kept == before) << kept << " rules";
      before = kept;
      size = size == 5 ? 8 : 5;
      ++failures;
    }
    EXPECT_GT(failures, 10);
    keep(
        9, [] {}, [] {});
    EXPECT_EQ(opened()->state().rules.size(), 9u);
    return testing::internal::GetCapturedStderr();
  }

 private:
  const TempDir dir_;
  RunningAgent agent_;
};

constexpr const char* told = "velo: the state cannot be written: memory ran out\n";

TEST_F(StateWithoutMemory, IsWholeWhereverACopyFails) {
  EXPECT_THAT(failEverywhere(When::copying), testing::HasSubstr(told));
}
/// There is not even the memory to say so.
TEST_F(StateWithoutMemory, IsWholeWhereverTheLastCopyFails) { failEverywhere(When::ending); }
TEST_F(StateWithoutMemory, IsWholeWhereverAWriteFails) {
  EXPECT_THAT(failEverywhere(When::writing), testing::HasSubstr(told));
}

}  // namespace
