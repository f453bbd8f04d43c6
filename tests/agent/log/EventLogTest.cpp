#include <agent/log/EventLog.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

namespace {

using Agent::EventLog;
using Agent::LogEvent;

LogEvent line(const std::string& text) { return {Agent::Severity::notice, text}; }

/// What stands on standard error when a log has had its life.
template <class Life>
std::string written(const Life& life) {
  testing::internal::CaptureStderr();
  {
    EventLog log;
    life(log);
  }
  return testing::internal::GetCapturedStderr();
}

TEST(EventLog, WritesAllInOrderBeforeItEnds) {
  EXPECT_EQ(written([](EventLog& log) {
              log.tell(line("before the start"));
              log.start();
              EXPECT_FALSE(log.isJournal());
              log.tell(line("one"));
              log.tellMade([] { return std::vector{line("two"), line("three")}; });
              log.tell(line("four"));
            }),
            "velo: before the start\nvelo: one\nvelo: two\nvelo: three\nvelo: four\n");
}

TEST(EventLog, NothingIsWrittenThatWasNeverStarted) {
  EXPECT_EQ(written([](EventLog& log) { log.tell(line("one")); }), "");
}

TEST(EventLog, WhatTakesLongIsMadeBesideWhoeverTells) {
  std::thread::id made;
  written([&](EventLog& log) {
    log.start();
    log.tellMade([&] {
      made = std::this_thread::get_id();
      return std::vector<LogEvent>();
    });
  });
  EXPECT_NE(made, std::thread::id());
  EXPECT_NE(made, std::this_thread::get_id());
}

/// As when whoever reads the log does not.
TEST(EventLog, SaysHowMuchWasLeftOutWhenTooMuchWaits) {
  // The log's thread comes to them until the log has gone.
  std::promise<void> held, goOn;
  auto isHeld = held.get_future(), goesOn = goOn.get_future();
  constexpr std::chrono::seconds longest(10);  // when it works, nobody waits so long
  const std::string text = written([&](EventLog& log) {
    log.start();
    log.tellMade([&] {
      held.set_value();
      EXPECT_EQ(goesOn.wait_for(longest), std::future_status::ready) << "made beside whoever tells";
      return std::vector{line("slow")};
    });
    EXPECT_EQ(isHeld.wait_for(longest), std::future_status::ready);
    for (size_t i = 0; i < EventLog::mostWaiting + 7; ++i) log.tell(line(i == 0 ? "first" : "x"));
    goOn.set_value();
  });
  EXPECT_TRUE(
      text.starts_with("velo: slow\nvelo: first\nvelo: 7 lines were left out of the log here\nvelo: x\n"))
      << text.substr(0, 200);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + static_cast<int>(EventLog::mostWaiting) + 1);
}

TEST(EventLog, GoesOnWhenALineCannotBeMade) {
  EXPECT_EQ(written([](EventLog& log) {
              log.start();
              log.tellMade([]() -> std::vector<LogEvent> { throw std::bad_alloc(); });
              log.tell(line("after it"));
            }),
            "velo: memory ran out for a line of the log\nvelo: after it\n");
}

}  // namespace
