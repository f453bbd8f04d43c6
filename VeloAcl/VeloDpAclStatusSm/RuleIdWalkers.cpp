#include <VeloAcl/VeloDpAclStatusSm/RuleIdWalkers.h>

namespace Velo::VeloAcl {

using Kiv::UniqueId;

RuleIdsByAclSm7::RuleIdsByAclSm7(const Kelp::Ptr<const LocalAttrStore>& entity, VeloDpAclStatusSm& machine)
    : TopWalker("RuleIdsByAclSm7", machine, nullptr, entity) {
  task5Is();
}
RuleIdsByAclSm7::~RuleIdsByAclSm7() = default;

void RuleIdsByAclSm7::task5Is() {
  taskIs(5, "Velo::VeloAcl::VeloDpAclStatusSm-RuleIdsByAclSm7InputScanTask5");
}

void RuleIdsByAclSm7::handleRuleIdsByAcl5(const AclTypeNameTuple& key) {
  if (!active()) return;
  traceStatus(8, "k: {}", key);
  if (const auto* holder = raw()->ruleIdsByAcl().find(key)) {
    RuleIdsByAclSm8Is(holder->ptr(), *this, key);
  } else {
    children_.del(key);
  }
}
void RuleIdsByAclSm7::handleRuleIdsByAcl5Reactor(const AclTypeNameTuple& key) { handleRuleIdsByAcl5(key); }

void RuleIdsByAclSm7::onChildEvent5(const AclTypeNameTuple& key, const UniqueId& uid) {
  machine().eventToRix_pipeline0(key, uid, false);
}

void RuleIdsByAclSm7::scan(int number) {
  scanMap(
      number, place_, raw() ? &raw()->ruleIdsByAcl() : nullptr,
      [this](const AclTypeNameTuple& k) { handleRuleIdsByAcl5(k); },
      [this](const AclTypeNameTuple& k) { return children_.find(k); });
}

void RuleIdsByAclSm7::scanFlagIs(int) { machine().inputSmScanState()->rix_pipeline0ScanIs(true); }

void RuleIdsByAclSm7::doDeleteAll() {
  if (!active()) return;
  traceStatus(9, "");
  children_.delAll();
}

void RuleIdsByAclSm7::dispatch(const Zeb::Change& change) {
  if (change.is(LocalAttrStore::ruleIdsByAclAttribute())) {
    handleRuleIdsByAcl5Reactor(change.keyAs<AclTypeNameTuple>());
  }
}

RuleIdsByAclSm8::RuleIdsByAclSm8(const Kelp::Ptr<const LocalAttrStore::Holder>& entity,
                                 RuleIdsByAclSm7& parent, const AclTypeNameTuple& key)
    : WalkerOf("RuleIdsByAclSm8", parent.machine(), &parent, entity), key_(key) {}
RuleIdsByAclSm8::~RuleIdsByAclSm8() = default;

void RuleIdsByAclSm8::handleValue5() {
  if (!active()) return;
  traceStatus(8, "k: {}", key_);
  if (child_.get() && child_.get()->en() != en()->value()) child_.del();
  if (!active()) return;
  if (const auto set = en()->value()) ValueSm9Is(set, *this);
}
void RuleIdsByAclSm8::handleValue5Reactor() { handleValue5(); }

void RuleIdsByAclSm8::onChildEvent5(const UniqueId& uid) { parentSm()->onChildEvent5(key_, uid); }

void RuleIdsByAclSm8::scan(int number) {
  KELP_ASSERT(raw(), "en() && \"Sm args can only be null if marked as Optional in the SM type declaration\"");
  scanSingle(
      number, place_, static_cast<bool>(raw()->value()), [this] { handleValue5(); },
      [this] { return child_.get(); });
}

void RuleIdsByAclSm8::doDeleteAll() {
  if (!active()) return;
  traceStatus(9, "");
  child_.del();
}

void RuleIdsByAclSm8::dispatch(const Zeb::Change& change) {
  if (change.is(LocalAttrStore::Holder::valueAttribute())) handleValue5Reactor();
}

ValueSm9::ValueSm9(const Kelp::Ptr<const Velo::Counter::RuleIdSet>& entity, RuleIdsByAclSm8& parent)
    : WalkerOf("ValueSm9", parent.machine(), &parent, entity) {}
ValueSm9::~ValueSm9() = default;

void ValueSm9::handleRuleIds5(const UniqueId& uid) {
  if (!active()) return;
  traceStatus(8, "k: {}", uid);
  versionsSeen();
  machine().eventToRix_pipeline0(parentSm()->key(), uid, raw()->ruleIds(uid));
}
void ValueSm9::handleRuleIds5Reactor(const UniqueId& uid) { handleRuleIds5(uid); }

void ValueSm9::scan(int number) {
  scanMap(
      number, place_, raw() ? &raw()->ruleIds() : nullptr, [this](const UniqueId& k) { handleRuleIds5(k); },
      noChild);
}

void ValueSm9::doDeleteAll() {
  if (!active()) return;
  traceStatus(9, "");
  KELP_ASSERT(raw()->ruleIds().version() == version_,
              "We missed notifications that happened to ruleIds before the enclosing entity got deleted");
  if (!initialScanDone()) return;
  forEachLeft(*this, raw()->ruleIds(), [this](const UniqueId& k) { parentSm()->onChildEvent5(k); });
}

void ValueSm9::dispatch(const Zeb::Change& change) {
  if (change.is(Velo::Counter::RuleIdSet::ruleIdsAttribute()))
    handleRuleIds5Reactor(change.keyAs<UniqueId>());
}

Kelp::Ptr<RuleIdsByAclSm7> RuleIdsByAclSm7Is(const Kelp::Ptr<const LocalAttrStore>& entity,
                                             VeloDpAclStatusSm& machine) {
  return topWalkerIs(machine.ruleIdsByAclSm7_, entity, machine);
}
Kelp::Ptr<RuleIdsByAclSm8> RuleIdsByAclSm8Is(const Kelp::Ptr<const LocalAttrStore::Holder>& entity,
                                             RuleIdsByAclSm7& parent, const AclTypeNameTuple& key) {
  return parent.children_.is(entity, parent, key);
}
Kelp::Ptr<ValueSm9> ValueSm9Is(const Kelp::Ptr<const Velo::Counter::RuleIdSet>& entity,
                               RuleIdsByAclSm8& parent) {
  return parent.child_.is(entity, parent);
}

}  // namespace Velo::VeloAcl
