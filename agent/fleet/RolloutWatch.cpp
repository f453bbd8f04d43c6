#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/RolloutStore.h>
#include <agent/fleet/RolloutWatch.h>

#include <utility>

namespace Agent {

void RolloutWatch::see(RolloutView& view, double now) {
  for (auto& [name, agent] : view.agents) {
    if (!agent.isThere || agent.stands != RolloutAgent::Stands::behind) {
      behind_.erase(name);
      continue;
    }
    const auto [at, isNew] = behind_.emplace(name, Behind{agent.wanted, now});
    if (at->second.wanted != agent.wanted) at->second = {agent.wanted, now};
    agent.behindFor = now - at->second.since;
  }
}

std::optional<Rollout> RolloutWatch::look(const FleetSight& sight, double now) {
  const FleetPlace place(sight.texts, textsPrefix(group_));
  if (std::exchange(seen_, place.rolloutAt()) != seen_) seenSince_ = now;
  RolloutView view = rolloutView(sight, group_);
  see(view, now);
  return nextRollout(*place.rollout(), view, now - seenSince_);
}

}  // namespace Agent
