#include <Acl/Model.h>
#include <agent/control/CounterSweep.h>
#include <agent/core/EventLoop.h>
#include <agent/show/ListReport.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

/// How many counters are looked at before the clock is read.
constexpr int countersAtOnce = 32;
constexpr Kelp::Duration askAgainAfter{1.0};

bool hasRule(const Acl::Config& lists, const Velo::Counter::VeloDpAclCounterKey& key) {
  const auto type = lists.config(key.aclType);
  const auto list = type ? type->acl(key.aclName) : nullptr;
  const auto rules = list ? list->currCfg() : nullptr;
  return rules && isRule(*rules, key.aclType, key.ruleId);
}

}  // namespace

CounterSweep::CounterSweep(Core& core, ZeroLine& zero, std::function<bool()> changing)
    : core_(core),
      zero_(zero),
      changing_(std::move(changing)),
      task_(sweepPriority, "CounterSweep", [this] { run(); }) {}

void CounterSweep::handleApplied() {
  sources_.clear();
  for (const std::string& name : core_.sources()) sources_.push_back(core_.source(name));
  collections_ = core_.inForce().counters();
  resume_.reset();
  task_->scheduleTask();
}

void CounterSweep::run() {
  // During a change packets may ask rules that are in no source.
  if (changing_()) return task_->scheduleTaskDelay(askAgainAfter);
  for (; !collections_.empty(); collections_.pop_back()) {
    if (!sweep(*collections_.back())) return task_->scheduleTask();
    resume_.reset();
  }
  sources_.clear();
}

bool CounterSweep::sweep(Collection& collection) {
  const auto& counters = collection.counterCollection();
  int visited = 0;
  for (auto at = resume_ ? counters.from(*resume_) : counters.begin(); at; at.next()) {
    if (++visited % countersAtOnce == 0 && task_->taskShouldYield()) {
      resume_ = at.key();
      return false;
    }
    if (!isKnown(at.key())) take(collection, Key(at.key()));
  }
  return true;
}

bool CounterSweep::isKnown(const Key& key) const {
  const auto* implicit = implicitDropOf(core_.inForce().statusOf(key.aclType, key.aclName));
  if (implicit && *implicit == key.ruleId) return true;
  // During a change packets may ask new rules before their source has them.
  const auto merged = core_.inForce().list(key.aclType, key.aclName);
  const auto* judging = merged ? merged->judging() : nullptr;
  if (judging && isRule(*judging, key.aclType, key.ruleId)) return true;
  return std::any_of(sources_.begin(), sources_.end(),
                     [&](const auto& source) { return hasRule(*source, key); });
}

void CounterSweep::take(Collection& collection, const Key& key) {
  collection.counterCollectionDel(key);
  zero_.forget(key);
  // The polls have copied the counter into the status, even if its rule was deleted before.
  const auto list = statusOf(core_.mountedStatus(), key.aclType, key.aclName);
  if (list) list->ruleStatusDel(key.ruleId);
}

}  // namespace Agent
