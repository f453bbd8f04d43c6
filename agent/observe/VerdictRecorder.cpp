#include <Acl/RuleKinds.h>
#include <agent/observe/VerdictRecorder.h>

#include <utility>

namespace Agent {

using Velo::Counter::VeloDpAclCounterKey;

VerdictRecorder::VerdictRecorder(Core& core, Forwarder& forwarder, std::function<void()> done)
    : core_(core),
      forwarder_(forwarder),
      done_(std::move(done)),
      place_(core, forwarder),
      follower_(
          core.inForce(), [](const VeloDpAclCounterKey&) { return true; },
          [this](const VeloDpAclCounterKey& key) { handleMatch(key); }) {
  core.namedCounters()->publisher().subscribe(*this);
  forwarder_.observerIs(this);
}

VerdictRecorder::~VerdictRecorder() { forwarder_.observerIs(nullptr); }

void VerdictRecorder::begin() {
  fate_.clear();
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
  fate_.mirroredAdd(session);
}

Kelp::String VerdictRecorder::dropReason(const Velo::PipelineStep& droppedBy) {
  Kelp::String reason = std::exchange(dropReason_, {});
  return reason.empty() ? Kelp::String(uncountedReason(droppedBy)) : reason;
}

void VerdictRecorder::handleEgress(const Port& port, const Velo::PipelineStep* droppedBy) {
  fate_.egressAdd(port.id, !droppedBy, droppedBy ? dropReason(*droppedBy) : Kelp::String());
}

void VerdictRecorder::handleVerdict(const Port& port, const Verdict& verdict) {
  fate_.port = port.id.name();
  const bool droppedIn = !verdict.passed() && fate_.egress.empty();
  const Junction* junction = port.entry ? port.entry->junction : nullptr;
  fate_.addressed = !droppedIn && junction && junction->asksAddresses();
  fate_.verdictIs(verdict, droppedIn ? dropReason(*verdict.droppedBy) : Kelp::String());
  if (done_) done_();
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
  fate_.hits.push_back(std::move(hit));
}

}  // namespace Agent
