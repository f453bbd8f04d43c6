#pragma once

#include <agent/core/EventLoop.h>
#include <agent/metrics/ChangeCounts.h>
#include <agent/show/World.h>
#include <agent/state/StateWriter.h>

#include <cstdint>
#include <functional>

namespace Agent {

/// What metrics are read from. All of it outlives them.
struct Watched {
  const World& world;
  const EventLoop& loop;
  const ChangeCounts& changes;
  /// The writes of the state file; empty: nothing is kept.
  std::function<StateWriter::Writes()> writes{};
  /// Has it looked at what the files of the configuration say by now; may be empty.
  std::function<void()> look{};
};

/// Which rules have metrics of their own.
enum class RuleChoice : uint8_t { none, hit, all };

/// So many rules have metrics of their own, in the order of the lists by kind and name.
inline constexpr size_t mostRuleMetrics = 10000;

}  // namespace Agent
