#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetPlace.h>
#include <agent/fleet/RolloutWatch.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using Agent::FleetPlace;
using Agent::FleetSight;
using Agent::Rollout;
using Agent::RolloutWatch;

/// A rollout whose turn all agents have, with one agent that is there and never tells of the texts.
FleetSight sightOf(Rollout::Phase phase, int64_t revision) {
  Rollout rollout;
  rollout.id = "1";
  rollout.steps = {{100, true}};
  rollout.wait = 10;
  rollout.upTo = "ffffffffffffffff";
  rollout.agents = 1;
  rollout.gone.emplace();
  rollout.phase = phase;
  FleetSight sight;
  sight.revision = revision;
  const std::string prefix = Agent::textsPrefix("edge"), key = Agent::rolloutKey(prefix);
  rollout.from = FleetPlace::versionOf(FleetPlace(sight.texts, prefix).texts());
  sight.texts[key] = {key, rollout.json(), revision, 1};
  sight.agents["a1"].groups = {"edge"};
  sight.agents["a1"].state = {{"agent", "a1"}, {"groups", {"edge"}}, {"inForce", nullptr}};
  return sight;
}

/// What becomes of the rollout when somebody looks each second, up to a time.
std::optional<Rollout> watched(RolloutWatch& watch, const FleetSight& sight, double from, double to) {
  std::optional<Rollout> next;
  for (double now = from; now <= to && !next; ++now) next = watch.look(sight, now);
  return next;
}

TEST(RolloutWatch, GoesBackWhenAnAgentDoesNotTell) {
  RolloutWatch watch("edge");
  const FleetSight sight = sightOf(Rollout::Phase::running, 5);
  EXPECT_FALSE(watched(watch, sight, 0, 9));
  const auto next = watched(watch, sight, 10, 12);
  ASSERT_TRUE(next);
  EXPECT_EQ(next->phase, Rollout::Phase::back);
}

TEST(RolloutWatch, WhatPassesWhileTheStoreIsAwayDoesNotCount) {
  RolloutWatch watch("edge");
  const FleetSight sight = sightOf(Rollout::Phase::running, 5);
  EXPECT_FALSE(watched(watch, sight, 0, 3));
  EXPECT_FALSE(watched(watch, sight, 1000, 1001)) << "three seconds, the gap's own five, and one";
  const auto next = watched(watch, sight, 1002, 1004);
  ASSERT_TRUE(next) << "and then it goes on";
  EXPECT_EQ(next->phase, Rollout::Phase::back);
}

TEST(RolloutWatch, AStepIsWatchedAnewBehindAPause) {
  RolloutWatch watch("edge");
  EXPECT_FALSE(watched(watch, sightOf(Rollout::Phase::running, 5), 0, 5));
  EXPECT_FALSE(watched(watch, sightOf(Rollout::Phase::paused, 6), 6, 60));
  const FleetSight sight = sightOf(Rollout::Phase::running, 7);
  EXPECT_FALSE(watched(watch, sight, 61, 69));
  EXPECT_TRUE(watched(watch, sight, 70, 72));
}

}  // namespace
