#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/RolloutStore.h>
#include <agent/fleet/RolloutWatch.h>

#include <utility>

namespace Agent {

namespace {

/// Seconds between two looks from which on the rollout was out of sight, as when its store was away.
constexpr double outOfSight = 5;

}  // namespace

/// Nobody was watched while nobody looked: that time does not count.
void RolloutWatch::passOver(double now) {
  const double unseen = lookedAt_ ? now - *lookedAt_ - outOfSight : 0;
  lookedAt_ = now;
  if (unseen <= 0) return;
  seenSince_ += unseen;
  for (auto& [name, behind] : behind_) behind.since += unseen;
}

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
  passOver(now);
  if (place.rollout()->phase == Rollout::Phase::paused) behind_.clear();
  if (std::exchange(seen_, place.rolloutAt()) != seen_) seenSince_ = now;
  RolloutView view = rolloutView(sight, group_);
  see(view, now);
  return nextRollout(*place.rollout(), view, now - seenSince_);
}

}  // namespace Agent
