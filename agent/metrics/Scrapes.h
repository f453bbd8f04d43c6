#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/core/Descriptor.h>
#include <agent/metrics/Gathering.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

namespace Agent {

/// Hands values that are gathered on the loop to the threads that ask for them. The loop gathers when
/// somebody asks, a slice a turn; packets wait for a slice at most, and for no thread.
class Scrapes {
 public:
  /// Who asks within so many seconds behind another gets the same values: nobody can keep the loop busy.
  static constexpr Kelp::Duration freshFor{1.0};

  /// Everything in `watched` outlives it. `most`: rules that have metrics.
  Scrapes(EventLoop& loop, const Watched& watched, RuleChoice choice, size_t most = mostRuleMetrics);
  ~Scrapes();
  Scrapes(const Scrapes&) = delete;
  Scrapes& operator=(const Scrapes&) = delete;

  /// Any thread but the loop's: waits for values. Null when there are none: memory ran out, the loop stood
  /// still for ten seconds, or stop() was called.
  std::shared_ptr<const Samples> take();
  /// Nobody waits any more.
  void stop();

 private:
  void handleAsked();
  void run();
  void answer(std::shared_ptr<const Samples> samples);

  EventLoop& loop_;
  const Watched& watched_;
  const RuleChoice choice_;
  const size_t most_;
  Ledger ledger_;
  Kiv::OwnedTask task_;
  std::unique_ptr<Gathering> gathering_;
  std::optional<Kelp::Duration> gathered_;  // when

  const Descriptor bell_;  // rung when somebody asks
  std::mutex mutex_;
  std::condition_variable answered_;
  // Protected by the mutex.
  uint64_t asked_ = 0;  // how often
  uint64_t done_ = 0;   // up to which question there is an answer
  std::shared_ptr<const Samples> last_;
  bool stopped_ = false;
};

}  // namespace Agent
