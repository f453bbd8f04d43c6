#include <Kiv/Clock.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/RolloutDriver.h>
#include <fmt/format.h>

#include <utility>

namespace Agent {

namespace {

constexpr const char* changedMeanwhile = "somebody else has changed the rollout meanwhile";

/// What a transaction came to: empty when it was carried out.
std::string whyNot(const Maybe<EtcdResult>& answer) {
  if (!answer) return answer.wrong;
  return answer.value->succeeded ? "" : changedMeanwhile;
}

}  // namespace

RolloutDriver::RolloutDriver(Etcd& etcd, std::string group, std::string who)
    : etcd_(etcd), group_(std::move(group)), who_(fmt::format("{} {}", who, keyOfChance())) {}

RolloutDriver::~RolloutDriver() {
  if (lease_ != 0) etcd_.revoke(lease_);
}

RolloutDriver::Look RolloutDriver::failed(const std::string& why) {
  return {.wrong = why, .mayNot = why.find("permission denied") != std::string::npos, .isOver = false};
}

/// Has the driver's key, or a reason why another one has it.
std::string RolloutDriver::keepKey(const FleetPlace& place, double now) {
  if (lease_ != 0 && now - leaseKept_ > leaseSeconds / 3.0) {
    const auto kept = etcd_.keepAlive(lease_);
    if (!kept) return kept.wrong;
    leaseKept_ = now;
    if (!*kept.value) lease_ = 0;
  }
  if (place.hasDriver()) return "";
  if (lease_ == 0) {
    const auto granted = etcd_.grant(leaseSeconds);
    if (!granted) return granted.wrong;
    lease_ = *granted.value;
    leaseKept_ = now;
  }
  const std::string key = driverKey(textsPrefix(group_));
  const auto answer = etcd_.txn({.compares = {{key, 0}}, .puts = {{key, who_, true}}, .lease = lease_});
  return answer ? "" : answer.wrong;
}

std::string RolloutDriver::move(const FleetSight& sight, const Rollout& after) {
  if (after.phase != Rollout::Phase::done) return whyNot(etcd_.txn(rolloutMove(sight, group_, after)));
  const auto whole = fleetSight(etcd_, FleetSight::Texts::whole);
  if (!whole) return whole.wrong;
  // What somebody else has written to the group since the look is not overwritten: the next look sees it.
  const FleetPlace place(whole.value->texts, textsPrefix(group_));
  if (place.rolloutAt() != seen_ || FleetPlace::versionOf(place.texts()) != after.from)
    return changedMeanwhile;
  return whyNot(etcd_.txn(rolloutMove(*whole.value, group_, after)));
}

RolloutDriver::Look RolloutDriver::look(double now) {
  std::vector<std::vector<EtcdEntry>> drivers;
  const auto sight =
      fleetSight(etcd_, FleetSight::Texts::keys, {{.key = driverKey(textsPrefix(group_))}}, &drivers);
  if (!sight) return failed(sight.wrong);
  const FleetPlace place(sight.value->texts, textsPrefix(group_));
  if (!place.rollout()) return {};
  Look look{.document = rolloutDocument(*sight.value, group_)};
  look.isOver = !place.rollout()->isActive();
  if (std::exchange(seen_, place.rolloutAt()) != seen_) seenSince_ = now;
  if (look.isOver) return look;
  if (auto wrong = keepKey(place, now); !wrong.empty()) {
    Look none = failed(wrong);
    none.document = std::move(look.document);
    return none;
  }
  look.document["driven"] = true;
  const bool isOurs = !drivers[0].empty() && drivers[0][0].value == who_;
  look.drives = isOurs || drivers[0].empty();
  if (!isOurs) return look;
  auto after = nextRollout(*place.rollout(), rolloutView(*sight.value, group_), now - seenSince_);
  if (!after) return look;
  after->changed = Kiv::wallClock().now().seconds();
  if (std::string wrong = move(*sight.value, *after); !wrong.empty() && wrong != changedMeanwhile) {
    look.mayNot = failed(wrong).mayNot;
    look.wrong = std::move(wrong);
  }
  return look;
}

Maybe<int64_t> beginRollout(Etcd& etcd, const FleetPlan& plan, const FleetSight& sight, int64_t auditedAt,
                            Rollout rollout) {
  rollout.id = keyOfChance();
  rollout.began = rollout.changed = Kiv::wallClock().now().seconds();
  const Rollout begun = begunRollout(std::move(rollout), rolloutView(sight, plan.group));
  const auto answer = etcd.txn(rolloutBegin(plan, sight, begun, auditedAt));
  if (auto wrong = whyNot(answer); !wrong.empty())
    return {{},
            wrong == changedMeanwhile ? "somebody else has changed " + plan.group + " meanwhile; try again"
                                      : wrong,
            answer.isUnknown};
  return {answer.value->revision, {}, false};
}

std::string changeRollout(Etcd& etcd, const std::string& group,
                          const std::function<std::optional<Rollout>(const Rollout& rollout)>& change) {
  constexpr int most = 10;
  for (int tries = 0; tries < most; ++tries) {
    const auto sight = fleetSight(etcd, FleetSight::Texts::keys);
    if (!sight) return sight.wrong;
    const FleetPlace place(sight.value->texts, textsPrefix(group));
    if (!place.rollout()) return "there is no rollout of " + group;
    auto after = change(*place.rollout());
    if (!after) return fmt::format("the rollout of {} is {}", group, phaseName(place.rollout()->phase));
    after->changed = Kiv::wallClock().now().seconds();
    if (std::string wrong = whyNot(etcd.txn(rolloutMove(*sight.value, group, *after)));
        wrong != changedMeanwhile)
      return wrong;
  }
  return changedMeanwhile;
}

}  // namespace Agent
