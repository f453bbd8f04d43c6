#pragma once

#include <agent/fleet/FleetSight.h>
#include <agent/fleet/Rollout.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace Agent {

/// What one who sees to the rollout of a group has seen of it: how long its step has been as it is, and who
/// has been without the texts for how long. What passes while the store is away, or the rollout is paused,
/// does not count. Each has its own, so no two clocks are compared; who takes over begins anew. Pure: `now`
/// is in seconds of any clock that is never set.
class RolloutWatch {
 public:
  explicit RolloutWatch(std::string group) : group_(std::move(group)) {}

  /// Looks, and returns what the rollout is to be next, if that is something else. The sight has one.
  std::optional<Rollout> look(const FleetSight& sight, double now);

 private:
  struct Behind {
    std::string wanted;  // other texts have their own time
    double since = 0;
  };

  void passOver(double now);
  void see(RolloutView& view, double now);

  const std::string group_;
  int64_t seen_ = 0;  // the revision of the rollout
  double seenSince_ = 0;
  std::optional<double> lookedAt_;
  std::map<std::string, Behind> behind_;  // by agent
};

}  // namespace Agent
