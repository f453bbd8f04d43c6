#pragma once

#include <VeloAcl/VeloDpAclStatusSm/LocalAttrStore.h>
#include <VeloAcl/VeloDpAclStatusSm/TopWalker.h>

/// The walkers over the rule-id index.
namespace Velo::VeloAcl {

using Velo::Counter::AclTypeNameTuple;

class RuleIdsByAclSm8;
class ValueSm9;

class RuleIdsByAclSm7 final : public TopWalker<LocalAttrStore>, public Scan5<RuleIdsByAclSm7> {
 public:
  RuleIdsByAclSm7(const Kelp::Ptr<const LocalAttrStore>& entity, VeloDpAclStatusSm& machine);
  ~RuleIdsByAclSm7() override;

  void handleRuleIdsByAcl5(const AclTypeNameTuple& key);
  void handleRuleIdsByAcl5Reactor(const AclTypeNameTuple& key);
  void onChildEvent5(const AclTypeNameTuple& key, const Kiv::UniqueId& uid);

  void doInputScan() override { startScan(5); }
  void task5Is();
  void task5Del() { taskDel(5); }
  void task5Dispatch() { driveScan(5); }
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int) const override { return placeComplete(place_); }

 private:
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>& visit) override { children_.forEach(visit); }
  void scanFlagIs(int number) override;

  uint64_t mark() const override { return raw()->ruleIdsByAcl().changes(); }

  friend Kelp::Ptr<RuleIdsByAclSm8> RuleIdsByAclSm8Is(const Kelp::Ptr<const LocalAttrStore::Holder>& entity,
                                                      RuleIdsByAclSm7& parent, const AclTypeNameTuple& key);
  ChildWalkers<AclTypeNameTuple, RuleIdsByAclSm8> children_;
  ScanPlace<AclTypeNameTuple> place_;
};

class RuleIdsByAclSm8 final : public WalkerOf<LocalAttrStore::Holder>, public Scan5<RuleIdsByAclSm8> {
 public:
  RuleIdsByAclSm8(const Kelp::Ptr<const LocalAttrStore::Holder>& entity, RuleIdsByAclSm7& parent,
                  const AclTypeNameTuple& key);
  ~RuleIdsByAclSm8() override;

  const AclTypeNameTuple& key() const { return key_; }
  void handleValue5();
  void handleValue5Reactor();
  void onChildEvent5(const Kiv::UniqueId& uid);

  void doInputScan() override { doInputScan5(); }
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int) const override { return placeComplete(place_); }

 private:
  RuleIdsByAclSm7* parentSm() const { return static_cast<RuleIdsByAclSm7*>(parent()); }
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>& visit) override { child_.forEach(visit); }
  uint64_t mark() const override { return reinterpret_cast<uintptr_t>(raw()->value().get()); }

  friend Kelp::Ptr<ValueSm9> ValueSm9Is(const Kelp::Ptr<const Velo::Counter::RuleIdSet>& entity,
                                        RuleIdsByAclSm8& parent);
  const AclTypeNameTuple key_;
  OnlyChild<ValueSm9> child_;
  ScanPlace<bool> place_;
};

class ValueSm9 final : public WalkerOf<Velo::Counter::RuleIdSet>, public Scan5<ValueSm9> {
 public:
  ValueSm9(const Kelp::Ptr<const Velo::Counter::RuleIdSet>& entity, RuleIdsByAclSm8& parent);
  ~ValueSm9() override;

  void handleRuleIds5(const Kiv::UniqueId& uid);
  void handleRuleIds5Reactor(const Kiv::UniqueId& uid);

  void doInputScan() override { doInputScan5(); }
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int) const override { return placeComplete(place_); }

 private:
  RuleIdsByAclSm8* parentSm() const { return static_cast<RuleIdsByAclSm8*>(parent()); }
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>&) override {}
  void versionsSeen() override { version_ = raw()->ruleIds().version(); }
  uint64_t mark() const override { return raw()->ruleIds().changes(); }

  ScanPlace<Kiv::UniqueId> place_;
  uint32_t version_ = 0;
};

/// The walker as the machine's own: the one that is there when it watches the same entity, else a new one,
/// which follows the entity and scans it from here on.
Kelp::Ptr<RuleIdsByAclSm7> RuleIdsByAclSm7Is(const Kelp::Ptr<const LocalAttrStore>& entity,
                                             VeloDpAclStatusSm& machine);
/// The walker of an entity as its parent's child: the one that is there when it watches the same entity, else
/// a new one, which follows the entity and scans it from here on.
Kelp::Ptr<RuleIdsByAclSm8> RuleIdsByAclSm8Is(const Kelp::Ptr<const LocalAttrStore::Holder>& entity,
                                             RuleIdsByAclSm7& parent, const AclTypeNameTuple& key);
Kelp::Ptr<ValueSm9> ValueSm9Is(const Kelp::Ptr<const Velo::Counter::RuleIdSet>& entity,
                               RuleIdsByAclSm8& parent);

}  // namespace Velo::VeloAcl
