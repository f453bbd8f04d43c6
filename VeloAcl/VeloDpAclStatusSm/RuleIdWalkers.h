#pragma once

#include <VeloAcl/VeloDpAclStatusSm/LocalAttrStore.h>
#include <VeloAcl/VeloDpAclStatusSm/TreeWalker.h>

/// The walkers over the rule-id index.
namespace Velo::VeloAcl {

using Velo::Counter::AclTypeNameTuple;

class RuleIdsByAclSm7;
class RuleIdsByAclSm8;

struct IdsOfSet {
  using Entity = Velo::Counter::RuleIdSet;
  static const auto& elements(const Entity& set) { return set.ruleIds(); }
  static const Zeb::Attribute& attribute() { return Entity::ruleIdsAttribute(); }
  static constexpr const char* missed =
      "We missed notifications that happened to ruleIds before the enclosing entity got deleted";
};
class ValueSm9 final
    : public TreeWalker<ValueSm9, Below<RuleIdsByAclSm8>, Walks<IdsOfSet>, NoChild, Scans<5>> {
 public:
  static constexpr auto walkerName = "ValueSm9";
  using TreeWalker::TreeWalker;

  void handleRuleIds5(const Kiv::UniqueId& uid);
  void handleRuleIds5Reactor(const Kiv::UniqueId& uid) { handleRuleIds5(uid); }
  void withdraw5(const Kiv::UniqueId& uid);
  using Table = HandlerTable<
      Handlers<&ValueSm9::handleRuleIds5, &ValueSm9::handleRuleIds5Reactor, &ValueSm9::withdraw5>>;
};

struct SetOfHolder {
  using Entity = LocalAttrStore::Holder;
  static auto at(const Entity& holder) { return holder.value(); }
  static SingleElement elements(const Entity& holder) { return SingleElement(at(holder).get()); }
  static const Zeb::Attribute& attribute() { return Entity::valueAttribute(); }
};
class RuleIdsByAclSm8 final : public TreeWalker<RuleIdsByAclSm8, Below<RuleIdsByAclSm7, AclTypeNameTuple>,
                                                Walks<SetOfHolder>, ValueSm9, Scans<5>> {
 public:
  static constexpr auto walkerName = "RuleIdsByAclSm8";
  using TreeWalker::TreeWalker;

  void handleValue5() { followNamed(); }
  void handleValue5Reactor() { handleValue5(); }
  using Table = HandlerTable<Handlers<&RuleIdsByAclSm8::handleValue5, &RuleIdsByAclSm8::handleValue5Reactor>>;

  void onChildEvent5(const Kiv::UniqueId& uid);
};

struct SetsByList {
  using Entity = LocalAttrStore;
  static const auto& elements(const Entity& store) { return store.ruleIdsByAcl(); }
  static const Zeb::Attribute& attribute() { return Entity::ruleIdsByAclAttribute(); }
  static Kelp::Ptr<const LocalAttrStore::Holder> at(const Entity& store, const AclTypeNameTuple& key) {
    const auto* holder = store.ruleIdsByAcl().find(key);
    return holder ? holder->ptr() : nullptr;
  }
};
class RuleIdsByAclSm7 final
    : public TreeWalker<RuleIdsByAclSm7, Top, Walks<SetsByList>, RuleIdsByAclSm8, Scans<5>> {
 public:
  static constexpr auto walkerName = "RuleIdsByAclSm7";
  RuleIdsByAclSm7(const Kelp::Ptr<const LocalAttrStore>& entity, VeloDpAclStatusSm& machine)
      : TreeWalker(entity, machine) {
    task5Is();
  }

  void task5Is() { taskIs(5, "Velo::VeloAcl::VeloDpAclStatusSm-RuleIdsByAclSm7InputScanTask5"); }
  void task5Del() { taskDel(5); }
  void task5Dispatch() { driveScan(5); }
  static constexpr bool (InputSmScanState::*streamScanIs[])(bool) = {&InputSmScanState::rix_pipeline0ScanIs};

  void handleRuleIdsByAcl5(const AclTypeNameTuple& key) { follow(key); }
  void handleRuleIdsByAcl5Reactor(const AclTypeNameTuple& key) { handleRuleIdsByAcl5(key); }
  using Table = HandlerTable<
      Handlers<&RuleIdsByAclSm7::handleRuleIdsByAcl5, &RuleIdsByAclSm7::handleRuleIdsByAcl5Reactor>>;

  void onChildEvent5(const AclTypeNameTuple& key, const Kiv::UniqueId& uid) {
    machine().eventToRix_pipeline0(key, uid, false);
  }
};

// The walker for an entity: the present one, which must watch the same entity, or a new one, which is
// started.
Kelp::Ptr<RuleIdsByAclSm7> RuleIdsByAclSm7Is(const Kelp::Ptr<const LocalAttrStore>& entity,
                                             VeloDpAclStatusSm& machine);
inline Kelp::Ptr<RuleIdsByAclSm8> RuleIdsByAclSm8Is(const Kelp::Ptr<const LocalAttrStore::Holder>& entity,
                                                    RuleIdsByAclSm7& parent, const AclTypeNameTuple& key) {
  return parent.childIs(entity, key);
}
inline Kelp::Ptr<ValueSm9> ValueSm9Is(const Kelp::Ptr<const Velo::Counter::RuleIdSet>& entity,
                                      RuleIdsByAclSm8& parent) {
  return parent.childIs(entity);
}

}  // namespace Velo::VeloAcl
