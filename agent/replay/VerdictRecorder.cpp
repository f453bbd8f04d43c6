#include <Acl/RuleKinds.h>
#include <Nimnet/IntfId.h>
#include <agent/replay/VerdictRecorder.h>

#include <Rix/CollectionFollower.h>

#include <algorithm>

namespace Agent {

using Velo::Counter::VeloDpAclCounter;
using Velo::Counter::VeloDpAclCounterColl;
using Velo::Counter::VeloDpAclCounterKey;

/// Follows all counters of one collection.
class VerdictRecorder::Collection {
 public:
  Collection(VerdictRecorder& owner, const Kelp::Ptr<VeloDpAclCounterColl>& counters)
      : follower_(
            counters, VeloDpAclCounterColl::counterCollectionAttribute(),
            [counters = counters.get()]() -> auto& { return counters->counterCollection(); },
            [this, &owner](const VeloDpAclCounterKey& key, const Zeb::Owned<VeloDpAclCounter>& counter) {
              counters_[key] = std::make_unique<Counter>(owner, key, counter.ptr());
            },
            [this](const VeloDpAclCounterKey& key) { counters_.erase(key); }) {}

 private:
  class Counter final : public Zeb::Notifiee {
   public:
    Counter(VerdictRecorder& owner, VeloDpAclCounterKey key, const Kelp::Ptr<const VeloDpAclCounter>& counter)
        : owner_(owner), key_(std::move(key)) {
      counter->publisher().subscribe(*this);
    }
    void handleChange(const Zeb::Change& change) override {
      if (change.is(Velo::Counter::PktCounter::packetsAttribute())) owner_.handleMatch(key_);
    }

   private:
    VerdictRecorder& owner_;
    const VeloDpAclCounterKey key_;
  };

  std::map<VeloDpAclCounterKey, std::unique_ptr<Counter>> counters_;
  Rix::CollectionFollower<VeloDpAclCounterColl::counterCollectionMap> follower_;
};

VerdictRecorder::VerdictRecorder(Core& core, Forwarder& forwarder) : core_(core), forwarder_(forwarder) {
  for (const auto& counters : core.inForce().counters())
    collections_.push_back(std::make_unique<Collection>(*this, counters));
  core.namedCounters()->publisher().subscribe(*this);
  forwarder_.mirrorObserverIs(this);
}

VerdictRecorder::~VerdictRecorder() { forwarder_.mirrorObserverIs(nullptr); }

void VerdictRecorder::begin() {
  hits_.clear();
  mirrored_.clear();
  dropReason_ = {};
  insideCopy_ = false;
  progress_[0] = progress_[1] = 0;
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

Nimnet::IntfId VerdictRecorder::interfaceOf(const VeloDpAclCounterKey& key) {
  const auto& ctx = forwarder_.context();
  const auto lag = Velo::LagPacketInfo::extractInfo(ctx);
  const bool in = key.direction == Acl::AclDirection::in;
  const Nimnet::IntfId interfaces[] = {
      lag ? (in ? lag->ingressPortChannel : lag->egressPortChannel) : Nimnet::IntfId(),
      in ? ctx->ingressIntf() : forwarder_.egressIntf()};

  const auto types = core_.inForce().bindings()->config(key.aclType);
  const auto bindings = types ? types->intf(key.direction) : nullptr;
  unsigned& progress = progress_[static_cast<int>(key.direction)];
  for (; progress < 4; ++progress) {
    const bool macStage = progress % 2 == 0;
    if (macStage != (key.aclType == Acl::AclType::mac)) continue;
    const Nimnet::IntfId& intf = interfaces[progress / 2];
    const Kelp::String* bound = bindings && !intf.empty() ? bindings->intf(intf) : nullptr;
    if (!bound || *bound != key.aclName) continue;
    ++progress;
    return intf;
  }
  return {};
}

void VerdictRecorder::handleMatch(const VeloDpAclCounterKey& key) {
  Hit hit{key.direction, interfaceOf(key), key.aclType, key.aclName, 0, Acl::Action::deny};
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
