#include <Acl/RuleKinds.h>
#include <agent/observe/VerdictRecorder.h>

#include <algorithm>

namespace Agent {

using Velo::Counter::VeloDpAclCounterKey;

VerdictRecorder::VerdictRecorder(Core& core, Forwarder& forwarder)
    : core_(core),
      forwarder_(forwarder),
      place_(core, forwarder),
      follower_(
          core.inForce(), [](const VeloDpAclCounterKey&) { return true; },
          [this](const VeloDpAclCounterKey& key) { handleMatch(key); }) {
  core.namedCounters()->publisher().subscribe(*this);
  forwarder_.mirrorObserverIs(this);
}

VerdictRecorder::~VerdictRecorder() { forwarder_.mirrorObserverIs(nullptr); }

void VerdictRecorder::begin() {
  hits_.clear();
  mirrored_.clear();
  dropReason_ = {};
  insideCopy_ = false;
}

void VerdictRecorder::handleChange(const Zeb::Change& change) {
  if (insideCopy_) return;
  const auto& name = change.keyAs<Velo::CounterName>();
  if (name.category == "Drop") dropReason_ = name.reason;
}

void VerdictRecorder::handleMirrored(const Kelp::String& session) {
  insideCopy_ = true;
  if (std::find(mirrored_.begin(), mirrored_.end(), session) == mirrored_.end()) mirrored_.push_back(session);
}

void VerdictRecorder::handleMatch(const VeloDpAclCounterKey& key) {
  Hit hit{key.direction, place_.of(key), key.aclType, key.aclName, 0, Acl::Action::deny};
  const Kelp::Ptr<const Acl::AclConfig> list = core_.inForce().list(key.aclType, key.aclName);
  const auto* rules = list ? list->judging() : nullptr;
  if (rules) {
    Acl::withRuleKind(key.aclType, [&](auto kind) {
      const auto* rule = kind.rules(*rules).find(key.ruleId);
      if (!rule) return;
      hit.sequence = rule->sequence();
      hit.action = rule->action();
    });
  }
  hits_.push_back(std::move(hit));
}

}  // namespace Agent
