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
    : etcd_(etcd),
      group_(std::move(group)),
      name_(std::move(who)),
      who_(fmt::format("{} {}", name_, keyOfChance())),
      watch_(group_) {}

RolloutDriver::~RolloutDriver() {
  if (lease_ != 0) etcd_.revoke(lease_);
}

RolloutDriver::Look RolloutDriver::failed(const std::string& why) {
  return {.wrong = why, .mayNot = why.find("permission denied") != std::string::npos, .isOver = false};
}

/// Renews the lease when it is time for that; why that was not possible.
std::string RolloutDriver::keepLease(double now) {
  if (lease_ == 0 || now - leaseKept_ <= leaseSeconds / 3.0) return "";
  const auto kept = etcd_.keepAlive(lease_);
  if (!kept) return kept.wrong;
  leaseKept_ = now;
  if (!*kept.value) lease_ = 0;
  return "";
}

/// Takes the key if nobody has it, by questions about two small keys. A lease is only for who may have it.
RolloutDriver::Look RolloutDriver::tryKey(double now) {
  hasKey_ = false;
  if (auto wrong = keepLease(now); !wrong.empty()) return failed(wrong);
  const std::string place = textsPrefix(group_), key = driverKey(place);
  for (int tries = 0; tries < 2; ++tries) {
    EtcdTxn asked{.reads = {{.key = key}, {.key = rolloutKey(place)}}, .lease = lease_};
    if (lease_ != 0) {
      asked.compares.push_back({key, 0});
      asked.puts.push_back({key, who_, true});
    }
    const auto answer = etcd_.txn(asked);
    if (!answer) {
      lease_ = answer.wrong.find("lease not found") == std::string::npos ? lease_ : 0;
      return failed(answer.wrong);
    }
    const auto &drivers = answer.value->reads[0], &states = answer.value->reads[1];
    const auto rollout = states.empty() ? std::nullopt : Rollout::of(states[0].value);
    if (!rollout || !rollout->isActive()) return {};
    hasKey_ = !drivers.empty() && drivers[0].value == who_;
    if (!drivers.empty()) return {.isOver = false, .drives = hasKey_};
    const auto granted = etcd_.grant(leaseSeconds);
    if (!granted) return failed(granted.wrong);
    lease_ = *granted.value;
    leaseKept_ = now;
  }
  return {.isOver = false};
}

std::string RolloutDriver::move(const FleetSight& sight, const Rollout& after) {
  if (after.phase != Rollout::Phase::done) return whyNot(etcd_.txn(rolloutMove(sight, group_, after, name_)));
  FleetSight whole = sight;
  if (auto wrong = readTexts(etcd_, whole, {textsPrefix(group_)}); !wrong.empty()) return wrong;
  return whyNot(etcd_.txn(rolloutMove(whole, group_, after, name_)));
}

RolloutDriver::Look RolloutDriver::look(double now, Looks looks) {
  Look look = tryKey(now);
  if (!hasKey_ && looks == Looks::withKey) return look;
  const auto sight = fleetSight(etcd_);
  if (!sight) return failed(sight.wrong);
  const FleetPlace place(sight.value->texts, textsPrefix(group_));
  if (!place.rollout()) return {};
  look.document = rolloutDocument(*sight.value, group_);
  look.isOver = !place.rollout()->isActive();
  auto after = watch_.look(*sight.value, now);
  if (look.isOver || !hasKey_ || !after) return look;
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

std::string changeRollout(Etcd& etcd, const std::string& group, const RolloutChange& change,
                          const std::string& who) {
  constexpr int most = 10;
  for (int tries = 0; tries < most; ++tries) {
    const auto sight = fleetSight(etcd);
    if (!sight) return sight.wrong;
    const FleetPlace place(sight.value->texts, textsPrefix(group));
    if (!place.rollout()) return "there is no rollout of " + group;
    auto after = change(*place.rollout(), rolloutView(*sight.value, group));
    if (!after) return fmt::format("the rollout of {} is {}", group, phaseName(place.rollout()->phase));
    after->changed = Kiv::wallClock().now().seconds();
    if (std::string wrong = whyNot(etcd.txn(rolloutMove(*sight.value, group, *after, who)));
        wrong != changedMeanwhile)
      return wrong;
  }
  return changedMeanwhile;
}

}  // namespace Agent
