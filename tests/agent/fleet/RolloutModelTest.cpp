#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetMirror.h>
#include <agent/fleet/RolloutStore.h>
#include <agent/fleet/RolloutWatch.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "../../support/Dice.h"
#include "../../support/Sanitizers.h"
#include "../support/Schema.h"
#include "FakeStore.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace {

using Agent::FleetSight;
using Agent::Rollout;
using Agent::SharedFleetContent;
using TestSupport::Dice;
using TestSupport::FakeStore;
using Json = nlohmann::ordered_json;

constexpr double wait = 60;

FleetSight sightOf(const FakeStore& store) {
  auto answer = store.read(Agent::fleetQuestion());
  FleetSight sight = FleetSight::of(answer);
  for (auto& [key, entry] : sight.texts) entry.value = store.entries().at(key).value;
  return sight;
}

/// An agent as it is in a fleet: it has what it took last, also while it is gone.
struct Member {
  explicit Member(std::string given) : name(std::move(given)), mirror(Agent::FleetIdentity{name, {"g"}}) {}

  bool has(const char* text) const {
    return content && !content->texts.empty() && content->texts[0].text == text;
  }
  void look(FakeStore& store) {
    SharedFleetContent now = mirror.take(store.read(mirror.question()));
    if (now) wanted = now;
    const bool refuses = refusesNew && wanted->texts[0].text == "new";
    if (!refuses) content = wanted;
    const auto said = [](const SharedFleetContent& one) {
      return one ? Json{{"revision", one->revision}, {"version", one->version}} : Json();
    };
    const Json state = {{"groups", {"g"}},
                        {"inForce", said(content)},
                        {"wanted", said(wanted)},
                        {"result", refuses ? "refused" : "in force"}};
    // New texts that do harm drop a hundred frames a second, where there was one.
    const Json drops = {{"version", content ? content->version : ""},
                        {"before", {60, 60}},
                        {"since", {isHarmed && has("new") ? 6000 : 0, 60}}};
    store.write({{Agent::stateKey(name), state.dump()},
                 {Agent::dropsKey(name), drops.dump()},
                 {Agent::knownKey(name), R"({"groups": ["g"]})"}});
    isThere = true;
  }
  void die(FakeStore& store) {
    store.write({{Agent::stateKey(name), ""}});
    mirror.forget();
    isThere = false;
  }

  const std::string name;
  Agent::FleetMirror mirror;
  SharedFleetContent content, wanted;  // what it has in force; what it is to have
  bool isThere = false, refusesNew = false, isHarmed = false;
};

/// One rollout among agents that come, go and join, with two drivers and an operator who look at one moment
/// and act at another, and somebody who writes to the group as well.
class World {
 public:
  explicit World(uint64_t seed) : dice_(seed), isHarmful_(dice_.once(8)) {
    store_.write({{"/velo/v1/config/g/t", "old"}});
    const uint64_t count = 1 + dice_.below(12);
    for (uint64_t i = 0; i < count; ++i) {
      members_.emplace_back(fmt::format("a{}", i));
      members_.back().isHarmed = isHarmful_;
      members_.back().look(store_);
      members_.back().refusesNew = dice_.once(40);
      if (dice_.once(5)) members_.back().die(store_);
    }
    begin();
  }

  void step() {
    now_ += static_cast<double>(dice_.below(20));
    switch (dice_.below(8)) {
      case 0:
      case 1:
      case 2:
        dice_.of(members_).isThere ? one().look(store_) : (void)0;
        break;
      case 3:
        if (auto& member = one(); dice_.once(10)) member.isThere ? member.die(store_) : member.look(store_);
        break;
      case 4:
        look(dice_.below(2));
        break;
      case 5:
        move(dice_.below(2));
        break;
      case 6:
        if (dice_.once(30)) steer();
        if (dice_.once(60)) write();
        if (dice_.once(20)) join();
        break;
      default:
        all();
        break;
    }
    check();
  }
  /// Everybody comes back, and somebody sees to it until it is over.
  void settle() {
    for (int round = 0; round < 100 && rollout().isActive(); ++round) {
      all();
      const FleetSight sight = sightOf(store_);
      if (rollout().phase == Rollout::Phase::paused)
        store_.txn(rolloutMove(sight, "g", *resumedRollout(rollout(), rolloutView(sight, "g")), "me"));
      now_ += wait;
      look(0);
      move(0);
      check();
    }
    ASSERT_FALSE(rollout().isActive()) << "it ends";
    const bool isTried = std::any_of(members_.begin(), members_.end(), [](const Member& member) {
      return member.isThere && !member.refusesNew;
    });
    const bool isBack = rollout().phase == Rollout::Phase::back;
    EXPECT_TRUE(isBack || !isWritten_) << "what somebody else has written meanwhile is not overwritten";
    EXPECT_TRUE(isBack || !isHarmful_ || dropsFactor_ == 0 || !isTried) << "more is dropped";
    EXPECT_EQ(TestSupport::whyNotOf("fleet-rollout.json",
                                    {{"revision", 1}, {"rollouts", {rolloutDocument(sightOf(store_), "g")}}}),
              "");
    for (Member& member : members_) member.look(store_);
    const bool isDone = rollout().phase == Rollout::Phase::done;
    for (const Member& member : members_)
      ASSERT_TRUE(member.has(isDone && !member.refusesNew ? "new" : "old"))
          << member.name << ": all have it, or nobody";
    EXPECT_EQ(store_.entries().at("/velo/v1/config/g/t").value, isDone ? "new" : "old");
    EXPECT_FALSE(store_.entries().contains("/velo/v1/config/g/rollout/texts/t"));
    EXPECT_EQ(store_.entries().contains("/velo/v1/config/g/u"), isWritten_);
    const auto audit = Agent::FleetAudit::of(store_.entries().at(Agent::auditKey("g")).value);
    EXPECT_EQ(audit.what, isDone ? "rollout" : "rollout back");
    EXPECT_EQ(store_.entries().contains(Agent::mayOpenKey("/velo/v1/config/g/")),
              isDone ? rollout().mayOpen : mayOpenBefore_ && !rollout().mayOpen);
  }
  Rollout rollout() const {
    return *Rollout::of(store_.entries().at("/velo/v1/config/g/rollout/state").value);
  }

 private:
  Member& one() { return members_[dice_.below(members_.size())]; }
  void begin() {
    const FleetSight sight = sightOf(store_);
    const Agent::FleetPlan plan{"g", {{"t", "new"}}};
    Rollout made;
    std::string wrong;
    made.id = fmt::format("{}", dice_.any());
    made.steps =
        *Agent::readSteps(dice_.of(std::vector<const char*>{"1,10%,50%", "2,3", "50%", "100%"}), &wrong);
    made.wait = wait;
    made.maxFailures = dice_.below(3);
    made.mayOpen = dice_.once(2);
    mayOpenBefore_ = dice_.once(2);
    if (mayOpenBefore_) store_.write({{Agent::mayOpenKey("/velo/v1/config/g/"), "of the texts before"}});
    made.dropsFactor = dropsFactor_ = dice_.once(2) ? 2 : 0;
    ASSERT_FALSE(whyNoRollout(plan, sight));
    ASSERT_TRUE(store_.txn(rolloutBegin(plan, sight, begunRollout(made, rolloutView(sight, "g")), 0)));
    ASSERT_FALSE(store_.txn(rolloutBegin(plan, sight, begunRollout(made, rolloutView(sight, "g")), 0)))
        << "it is begun once";
    ASSERT_TRUE(whyNoRollout(plan, sightOf(store_)));
    check();
  }
  void all() {
    for (Member& member : members_) {
      if (member.isThere) member.look(store_);
    }
  }
  void look(uint64_t driver) {
    seen_[driver] = sightOf(store_);
    next_[driver] = watch_[driver].look(*seen_[driver], now_);
  }
  /// By what this driver saw last, which may be long ago.
  void move(uint64_t driver) {
    if (!seen_[driver] || !next_[driver]) return;
    const FleetSight& sight = *seen_[driver];
    const Rollout before = *Agent::FleetPlace(sight.texts, "/velo/v1/config/g/").rollout();
    const Rollout after = *next_[driver];
    if (!store_.txn(rolloutMove(sight, "g", after, "me"))) return;
    if (after.phase == Rollout::Phase::back || (after.step == before.step && after.isActive())) return;
    // It went on: all whose turn it was, and who were there, had told that they have it, but for as many as
    // may fail, and those that came a moment ago.
    uint64_t without = 0;
    for (const auto& [name, member] : sight.agents) {
      if (!before.isTurn(name) || member.state.is_null() || joined_.contains(name)) continue;
      const bool wasGone = std::find(before.gone->begin(), before.gone->end(), name) != before.gone->end();
      without += !wasGone && member.state.at("inForce").at("version") != sight.contentOf(name).version;
    }
    EXPECT_LE(without, before.maxFailures);
  }
  /// Somebody who does not know of rollouts.
  void write() {
    if (!rollout().isActive() || isWritten_) return;
    store_.write({{"/velo/v1/config/g/u", "foreign"}});
    isWritten_ = true;
  }
  void join() {
    members_.emplace_back(fmt::format("b{}", members_.size()));
    joined_.insert(members_.back().name);
    members_.back().isHarmed = isHarmful_;
    members_.back().look(store_);
  }
  void steer() {
    const FleetSight sight = sightOf(store_);
    const uint64_t what = dice_.below(4);
    const auto after = what == 0   ? abortedRollout(rollout(), "me")
                       : what == 1 ? resumedRollout(rollout(), rolloutView(sight, "g"))
                                   : pausedRollout(rollout());
    if (after) store_.txn(rolloutMove(sight, "g", *after, "me"));
  }
  void check() {
    const Rollout now = rollout();
    if (!now.isActive()) return;
    ASSERT_GE(now.step, lastStep_);
    ASSERT_GE(now.upTo, lastUpTo_);
    lastStep_ = now.step;
    lastUpTo_ = now.upTo;
    // Who was gone when a step began is besides, and has the texts when it comes back; who joins has its
    // place in the order at once.
    if (now.gone) besides_.insert(now.gone->begin(), now.gone->end());
    uint64_t changed = 0;
    for (const Member& member : members_) {
      changed += member.has("new") && !besides_.contains(member.name) && !joined_.contains(member.name);
      ASSERT_TRUE(!member.has("new") || now.isTurn(member.name)) << member.name << " has it before its turn";
    }
    ASSERT_LE(changed, now.steps[now.step].of(members_.size())) << "no more have it than the step allows";
  }

  Dice dice_;
  FakeStore store_;
  std::vector<Member> members_;
  std::set<std::string> joined_, besides_;
  std::optional<FleetSight> seen_[2];
  std::optional<Rollout> next_[2];
  Agent::RolloutWatch watch_[2] = {Agent::RolloutWatch("g"), Agent::RolloutWatch("g")};
  double now_ = 0, dropsFactor_ = 0;
  bool isHarmful_ = false, isWritten_ = false, mayOpenBefore_ = false;
  size_t lastStep_ = 0;
  std::string lastUpTo_;
};

TEST(RolloutModel, AnyHistoryLeavesAllAgentsWithOneOfTheTwo) {
  const int worlds = TestSupport::casesOf(150);
  int done = 0, back = 0;
  for (int seed = 1; seed <= worlds; ++seed) {
    SCOPED_TRACE(seed);
    World world(static_cast<uint64_t>(seed));
    for (int i = 0; i < 100 && !testing::Test::HasFatalFailure(); ++i) world.step();
    if (!testing::Test::HasFatalFailure()) world.settle();
    if (testing::Test::HasFailure()) return;
    (world.rollout().phase == Rollout::Phase::done ? done : back) += 1;
  }
  EXPECT_GT(done, worlds / 10) << "and both happen";
  EXPECT_GT(back, worlds / 10);
}

}  // namespace
