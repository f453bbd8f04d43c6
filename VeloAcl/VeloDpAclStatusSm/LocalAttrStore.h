#pragma once

#include <Acl/Counters.h>
#include <Zeb/Attributes.h>

namespace Velo::VeloAcl {

/// One entry of the rule-id index: it holds the set of the ids of a list's rules, which is made on first use.
class LocalAttrVeloCounterAclTypeNameTupleVeloCounterRuleIdSetPtr : public Zeb::Entity {
  ZEB_ENTITY(LocalAttrVeloCounterAclTypeNameTupleVeloCounterRuleIdSetPtr, Zeb::Entity)

 public:
  using Set = Velo::Counter::RuleIdSet;

  explicit LocalAttrVeloCounterAclTypeNameTupleVeloCounterRuleIdSetPtr(
      const Velo::Counter::AclTypeNameTuple&) {}

  /// The set, made when there is none.
  Kelp::Ptr<Set> valueIs() {
    if (!value()) valueIs(MemSlab::make<Set>());
    return value();
  }
  ZEB_CHILD(Set, value)
};

/// The machine's own state: the ids of the rules in force, by list. An entry exists only while its set has
/// members (or is about to get the first one).
class LocalAttrStore : public Zeb::Entity {
  ZEB_ENTITY(LocalAttrStore, Zeb::Entity)

 public:
  using Key = Velo::Counter::AclTypeNameTuple;
  using Holder = LocalAttrVeloCounterAclTypeNameTupleVeloCounterRuleIdSetPtr;
  using ruleIdsByAclMap = Zeb::HashMap2018<Key, Zeb::Owned<Holder>>;

  ~LocalAttrStore() override { ruleIdsByAclDelAll(); }

  const ruleIdsByAclMap& ruleIdsByAcl() const { return ruleIdsByAcl_; }
  /// The set of a list, null when it has none.
  Kelp::Ptr<Velo::Counter::RuleIdSet> ruleIdsByAcl(const Key& key) {
    auto* holder = ruleIdsByAcl_.find(key);
    return holder ? holder->get()->value() : nullptr;
  }
  /// The set of a list, made when it has none.
  Kelp::Ptr<Velo::Counter::RuleIdSet> ruleIdsByAclIs(const Key& key) {
    return zebChild(ruleIdsByAclAttribute(), ruleIdsByAcl_, key)->valueIs();
  }
  void ruleIdsByAclDel(const Key& key) { zebEraseChild(ruleIdsByAclAttribute(), ruleIdsByAcl_, key); }
  void ruleIdsByAclDelAll() {
    for (auto at = ruleIdsByAcl_.begin(); at; at.next()) ruleIdsByAclDel(at.key());
  }
  ZEB_ROW(ruleIdsByAcl, Zeb::CollectionAttribute<ZebSelf, &ZebSelf::ruleIdsByAcl_> row("ruleIdsByAcl"))

 private:
  ruleIdsByAclMap ruleIdsByAcl_;
};

}  // namespace Velo::VeloAcl
