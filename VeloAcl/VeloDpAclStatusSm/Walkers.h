#pragma once

#include <Acl/Model.h>
#include <VeloAcl/VeloDpAclStatusSm/LocalAttrStore.h>
#include <VeloAcl/VeloDpAclStatusSm/Walker.h>

/// The ten walkers. Each says what it watches, what it is keyed by in its parent and what it does with an
/// element; how collections are scanned, children kept and tasks used is Walker's.
///
///   walker             watches                          elements                 child        scans
///   AclIntfConfigSm0   Acl::IntfConfig                  config[aclType]          ConfigSm1    0
///   ConfigSm1          Acl::IntfTypeConfig              intf[direction]          IntfSm2      0
///   IntfSm2            Acl::AclIntf                     intf[intfId]             -            0
///   AclConfigSm3       Acl::Config                      config[aclType]          ConfigSm4    1 2 3 4
///   ConfigSm4          Acl::AclTypeConfig               acl[aclName]             AclSm5 (2-4) 1 2 3 4
///   AclSm5             Acl::AclConfig                   currCfg                  CurrCfgSm6   2 3 4
///   CurrCfgSm6         Acl::AclSubConfig                ipRuleById[uid]          -            2
///                                                       ip6RuleById[uid]         -            3
///                                                       macRuleById[uid]         -            4
///   RuleIdsByAclSm7    LocalAttrStore                   ruleIdsByAcl[key]        RuleIdsByAclSm8   5
///   RuleIdsByAclSm8    the entry's holder               value                    ValueSm9     5
///   ValueSm9           Velo::Counter::RuleIdSet         ruleIds[uid]             -            5
namespace Velo::VeloAcl {

using Velo::Counter::AclTypeNameTuple;

/// A walker over an entity of a type.
template <class Entity>
class WalkerOf : public Walker {
 public:
  /// The watched entity.
  Kelp::Ptr<const Entity> en() const {
    return Kelp::Ptr<const Entity>(static_cast<const Entity*>(watchedEntity().get()));
  }

 protected:
  using Walker::Walker;
  const Entity* raw() const { return static_cast<const Entity*>(watchedEntity().get()); }
};

/// A walker that belongs to the machine itself and owns the tasks of its scans.
template <class Entity>
class TopWalker : public WalkerOf<Entity> {
 public:
  ~TopWalker() override;

 protected:
  using WalkerOf<Entity>::WalkerOf;
  /// Runs a scan in its task when that has work queued already, else at once.
  void startScan(int number);
  void driveScan(int number);
  void taskIs(int number, const char* taskName);
  void taskDel(int number);
  void handleScanDone(int number) override;
  /// Tells the machine that a pass of the scan is over.
  virtual void scanFlagIs(int number) = 0;
};

/// The operations of one scan number.
#define SCAN_OPERATIONS(number)                                    \
  void doInputScan##number() { scan(number); }                     \
  bool shouldYield##number() const { return shouldYield(number); } \
  bool inTask##number() const { return inTask(number); }           \
  bool inputScanComplete##number() const { return scanComplete(number); }

// ---- interface bindings ------------------------------------------------------------------------------

class ConfigSm1;
class IntfSm2;

class AclIntfConfigSm0 final : public TopWalker<Acl::IntfConfig> {
 public:
  AclIntfConfigSm0(const Kelp::Ptr<const Acl::IntfConfig>& entity, VeloDpAclStatusSm& machine);
  ~AclIntfConfigSm0() override;

  Kelp::Ptr<ConfigSm1> childSmConfigAclIntfTypeConfigPtrConstIs(
      const Kelp::Ptr<const Acl::IntfTypeConfig>& entity, Acl::AclType aclType);
  void childSmConfigAclIntfTypeConfigPtrConstDel(Acl::AclType aclType) { children_.del(aclType); }
  void childSmConfigAclIntfTypeConfigPtrConstDelAll() { children_.delAll(); }

  void handleConfig0(Acl::AclType aclType);
  void handleConfig0Reactor(Acl::AclType aclType);
  void onChildEvent0(Acl::AclType aclType, Acl::AclDirection direction, const Nimnet::IntfId& intfId,
                     const std::optional<Kelp::String>& aclName);

  void doInputScan() override { startScan(0); }
  SCAN_OPERATIONS(0)
  void task0Is();
  void task0Del() { taskDel(0); }
  void task0Dispatch() { driveScan(0); }
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int) const override { return placeComplete(place_); }

 private:
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>& visit) override { children_.forEach(visit); }
  void scanFlagIs(int number) override;

  ChildWalkers<Acl::AclType, ConfigSm1> children_;
  ScanPlace<Acl::AclType> place_;
};

class ConfigSm1 final : public WalkerOf<Acl::IntfTypeConfig> {
 public:
  ConfigSm1(const Kelp::Ptr<const Acl::IntfTypeConfig>& entity, AclIntfConfigSm0& parent,
            Acl::AclType aclType);
  ~ConfigSm1() override;

  Acl::AclType aclType() const { return aclType_; }
  Kelp::Ptr<IntfSm2> childSmIntfAclAclIntfPtrConstIs(const Kelp::Ptr<const Acl::AclIntf>& entity,
                                                     Acl::AclDirection direction);
  void childSmIntfAclAclIntfPtrConstDel(Acl::AclDirection direction) { children_.del(direction); }
  void childSmIntfAclAclIntfPtrConstDelAll() { children_.delAll(); }

  void handleIntf0(Acl::AclDirection direction);
  void handleIntf0Reactor(Acl::AclDirection direction);
  void onChildEvent0(Acl::AclDirection direction, const Nimnet::IntfId& intfId,
                     const std::optional<Kelp::String>& aclName);

  void doInputScan() override { doInputScan0(); }
  SCAN_OPERATIONS(0)
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int) const override { return placeComplete(place_); }

 private:
  AclIntfConfigSm0* parentSm() const { return static_cast<AclIntfConfigSm0*>(parent()); }
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>& visit) override { children_.forEach(visit); }
  void versionsSeen() override { version_ = raw()->intf().version(); }

  const Acl::AclType aclType_;
  ChildWalkers<Acl::AclDirection, IntfSm2> children_;
  ScanPlace<Acl::AclDirection> place_;
  uint32_t version_ = 0;
};

class IntfSm2 final : public WalkerOf<Acl::AclIntf> {
 public:
  IntfSm2(const Kelp::Ptr<const Acl::AclIntf>& entity, ConfigSm1& parent, Acl::AclDirection direction);
  ~IntfSm2() override;

  void handleIntf0(const Nimnet::IntfId& intfId);
  void handleIntf0Reactor(const Nimnet::IntfId& intfId);

  void doInputScan() override { doInputScan0(); }
  SCAN_OPERATIONS(0)
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int) const override { return placeComplete(place_); }

 private:
  ConfigSm1* parentSm() const { return static_cast<ConfigSm1*>(parent()); }
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>&) override {}
  void versionsSeen() override { version_ = raw()->intf().version(); }

  const Acl::AclDirection direction_;
  ScanPlace<Nimnet::IntfId> place_;
  uint32_t version_ = 0;
};

// ---- lists and rules ---------------------------------------------------------------------------------

class ConfigSm4;
class AclSm5;
class CurrCfgSm6;

class AclConfigSm3 final : public TopWalker<Acl::Config> {
 public:
  AclConfigSm3(const Kelp::Ptr<const Acl::Config>& entity, VeloDpAclStatusSm& machine);
  ~AclConfigSm3() override;

  Kelp::Ptr<ConfigSm4> childSmConfigAclAclTypeConfigPtrConstIs(
      const Kelp::Ptr<const Acl::AclTypeConfig>& entity, Acl::AclType aclType);
  void childSmConfigAclAclTypeConfigPtrConstDel(Acl::AclType aclType) { children_.del(aclType); }
  void childSmConfigAclAclTypeConfigPtrConstDelAll() { children_.delAll(); }

  void handleConfig1(Acl::AclType aclType) { handleConfig(aclType); }
  void handleConfig2(Acl::AclType aclType) { handleConfig(aclType); }
  void handleConfig3(Acl::AclType aclType) { handleConfig(aclType); }
  void handleConfig4(Acl::AclType aclType) { handleConfig(aclType); }
  void handleConfig1Reactor(Acl::AclType aclType);
  void handleConfig2Reactor(Acl::AclType aclType);
  void handleConfig3Reactor(Acl::AclType aclType);
  void handleConfig4Reactor(Acl::AclType aclType);
  void onChildEvent1(Acl::AclType aclType, const Kelp::String& aclName);
  void onChildEvent2(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid);
  void onChildEvent3(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid);
  void onChildEvent4(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid);

  void doInputScan() override;
  SCAN_OPERATIONS(1)
  SCAN_OPERATIONS(2)
  SCAN_OPERATIONS(3)
  SCAN_OPERATIONS(4)
  void task1Is();
  void task2Is();
  void task3Is();
  void task4Is();
  void task1Del() { taskDel(1); }
  void task2Del() { taskDel(2); }
  void task3Del() { taskDel(3); }
  void task4Del() { taskDel(4); }
  void task1Dispatch() { driveScan(1); }
  void task2Dispatch() { driveScan(2); }
  void task3Dispatch() { driveScan(3); }
  void task4Dispatch() { driveScan(4); }
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int number) const override { return placeComplete(places_[number - 1]); }

 private:
  void handleConfig(Acl::AclType aclType);
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>& visit) override { children_.forEach(visit); }
  void scanFlagIs(int number) override;

  ChildWalkers<Acl::AclType, ConfigSm4> children_;
  std::array<ScanPlace<Acl::AclType>, 4> places_;
};

class ConfigSm4 final : public WalkerOf<Acl::AclTypeConfig> {
 public:
  ConfigSm4(const Kelp::Ptr<const Acl::AclTypeConfig>& entity, AclConfigSm3& parent, Acl::AclType aclType);
  ~ConfigSm4() override;

  Acl::AclType aclType() const { return aclType_; }
  Kelp::Ptr<AclSm5> childSmAclAclAclConfigPtrConstIs(const Kelp::Ptr<const Acl::AclConfig>& entity,
                                                     const Kelp::String& aclName);
  void childSmAclAclAclConfigPtrConstDel(const Kelp::String& aclName) { children_.del(aclName); }
  void childSmAclAclAclConfigPtrConstDelAll() { children_.delAll(); }

  /// The list itself: a leaf of scan 1.
  void handleAcl1(const Kelp::String& aclName);
  void handleAcl2(const Kelp::String& aclName) { handleAcl(aclName); }
  void handleAcl3(const Kelp::String& aclName) { handleAcl(aclName); }
  void handleAcl4(const Kelp::String& aclName) { handleAcl(aclName); }
  void handleAcl1Reactor(const Kelp::String& aclName);
  void handleAcl2Reactor(const Kelp::String& aclName);
  void handleAcl3Reactor(const Kelp::String& aclName);
  void handleAcl4Reactor(const Kelp::String& aclName);
  void onChildEvent2(const Kelp::String& aclName, const Kiv::UniqueId& uid);
  void onChildEvent3(const Kelp::String& aclName, const Kiv::UniqueId& uid);
  void onChildEvent4(const Kelp::String& aclName, const Kiv::UniqueId& uid);

  void doInputScan() override;
  SCAN_OPERATIONS(1)
  SCAN_OPERATIONS(2)
  SCAN_OPERATIONS(3)
  SCAN_OPERATIONS(4)
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int number) const override { return placeComplete(places_[number - 1]); }

 private:
  AclConfigSm3* parentSm() const { return static_cast<AclConfigSm3*>(parent()); }
  void handleAcl(const Kelp::String& aclName);
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>& visit) override { children_.forEach(visit); }
  void versionsSeen() override { version_ = raw()->acl().version(); }

  const Acl::AclType aclType_;
  ChildWalkers<Kelp::String, AclSm5> children_;
  std::array<ScanPlace<Kelp::String>, 4> places_;
  uint32_t version_ = 0;
};

class AclSm5 final : public WalkerOf<Acl::AclConfig> {
 public:
  AclSm5(const Kelp::Ptr<const Acl::AclConfig>& entity, ConfigSm4& parent, const Kelp::String& aclName);
  ~AclSm5() override;

  const Kelp::String& aclName() const { return aclName_; }
  Acl::AclType aclType() const { return parentSm()->aclType(); }
  Kelp::Ptr<CurrCfgSm6> childSmCurrCfgAclAclSubConfigPtrConstIs(
      const Kelp::Ptr<const Acl::AclSubConfig>& entity);
  void childSmCurrCfgAclAclSubConfigPtrConstDel();

  void handleCurrCfg2() { handleCurrCfg(); }
  void handleCurrCfg3() { handleCurrCfg(); }
  void handleCurrCfg4() { handleCurrCfg(); }
  void handleCurrCfg2Reactor();
  void handleCurrCfg3Reactor();
  void handleCurrCfg4Reactor();
  void onChildEvent2(const Kiv::UniqueId& uid);
  void onChildEvent3(const Kiv::UniqueId& uid);
  void onChildEvent4(const Kiv::UniqueId& uid);

  void doInputScan() override;
  SCAN_OPERATIONS(2)
  SCAN_OPERATIONS(3)
  SCAN_OPERATIONS(4)
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int number) const override { return placeComplete(places_[number - 2]); }

 private:
  ConfigSm4* parentSm() const { return static_cast<ConfigSm4*>(parent()); }
  void handleCurrCfg();
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>& visit) override;

  const Kelp::String aclName_;
  Kelp::Ptr<CurrCfgSm6> child_;
  std::array<ScanPlace<bool>, 3> places_;
};

class CurrCfgSm6 final : public WalkerOf<Acl::AclSubConfig> {
 public:
  CurrCfgSm6(const Kelp::Ptr<const Acl::AclSubConfig>& entity, AclSm5& parent);
  ~CurrCfgSm6() override;

  void handleIpRuleById2(const Kiv::UniqueId& uid);
  void handleIp6RuleById3(const Kiv::UniqueId& uid);
  void handleMacRuleById4(const Kiv::UniqueId& uid);
  void handleIpRuleById2Reactor(const Kiv::UniqueId& uid);
  void handleIp6RuleById3Reactor(const Kiv::UniqueId& uid);
  void handleMacRuleById4Reactor(const Kiv::UniqueId& uid);

  void doInputScan() override;
  SCAN_OPERATIONS(2)
  SCAN_OPERATIONS(3)
  SCAN_OPERATIONS(4)
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int number) const override { return placeComplete(places_[number - 2]); }

 private:
  AclSm5* parentSm() const { return static_cast<AclSm5*>(parent()); }
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>&) override {}
  void versionsSeen() override;

  std::array<ScanPlace<Kiv::UniqueId>, 3> places_;
  std::array<uint32_t, 3> versions_{};
};

// ---- the rule-id index -------------------------------------------------------------------------------

class RuleIdsByAclSm8;
class ValueSm9;

class RuleIdsByAclSm7 final : public TopWalker<LocalAttrStore> {
 public:
  RuleIdsByAclSm7(const Kelp::Ptr<const LocalAttrStore>& entity, VeloDpAclStatusSm& machine);
  ~RuleIdsByAclSm7() override;

  void handleRuleIdsByAcl5(const AclTypeNameTuple& key);
  void handleRuleIdsByAcl5Reactor(const AclTypeNameTuple& key);
  void onChildEvent5(const AclTypeNameTuple& key, const Kiv::UniqueId& uid);

  void doInputScan() override { startScan(5); }
  SCAN_OPERATIONS(5)
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

  ChildWalkers<AclTypeNameTuple, RuleIdsByAclSm8> children_;
  ScanPlace<AclTypeNameTuple> place_;
};

class RuleIdsByAclSm8 final : public WalkerOf<LocalAttrStore::Holder> {
 public:
  RuleIdsByAclSm8(const Kelp::Ptr<const LocalAttrStore::Holder>& entity, RuleIdsByAclSm7& parent,
                  const AclTypeNameTuple& key);
  ~RuleIdsByAclSm8() override;

  const AclTypeNameTuple& key() const { return key_; }
  void handleValue5();
  void handleValue5Reactor();
  void onChildEvent5(const Kiv::UniqueId& uid);

  void doInputScan() override { doInputScan5(); }
  SCAN_OPERATIONS(5)
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int) const override { return placeComplete(place_); }

 private:
  RuleIdsByAclSm7* parentSm() const { return static_cast<RuleIdsByAclSm7*>(parent()); }
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>& visit) override;
  void childDel();

  const AclTypeNameTuple key_;
  Kelp::Ptr<ValueSm9> child_;
  ScanPlace<bool> place_;
};

class ValueSm9 final : public WalkerOf<Velo::Counter::RuleIdSet> {
 public:
  ValueSm9(const Kelp::Ptr<const Velo::Counter::RuleIdSet>& entity, RuleIdsByAclSm8& parent);
  ~ValueSm9() override;

  void handleRuleIds5(const Kiv::UniqueId& uid);
  void handleRuleIds5Reactor(const Kiv::UniqueId& uid);

  void doInputScan() override { doInputScan5(); }
  SCAN_OPERATIONS(5)
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int) const override { return placeComplete(place_); }

 private:
  RuleIdsByAclSm8* parentSm() const { return static_cast<RuleIdsByAclSm8*>(parent()); }
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>&) override {}
  void versionsSeen() override { version_ = raw()->ruleIds().version(); }

  ScanPlace<Kiv::UniqueId> place_;
  uint32_t version_ = 0;
};

// The constructing entry points of the framework.
Kelp::Ptr<AclIntfConfigSm0> AclIntfConfigSm0Is(const Kelp::Ptr<const Acl::IntfConfig>& entity,
                                               VeloDpAclStatusSm& machine);
Kelp::Ptr<ConfigSm1> ConfigSm1Is(const Kelp::Ptr<const Acl::IntfTypeConfig>& entity, AclIntfConfigSm0& parent,
                                 Acl::AclType aclType);
Kelp::Ptr<IntfSm2> IntfSm2Is(const Kelp::Ptr<const Acl::AclIntf>& entity, ConfigSm1& parent,
                             Acl::AclDirection direction);
Kelp::Ptr<AclConfigSm3> AclConfigSm3Is(const Kelp::Ptr<const Acl::Config>& entity,
                                       VeloDpAclStatusSm& machine);
Kelp::Ptr<ConfigSm4> ConfigSm4Is(const Kelp::Ptr<const Acl::AclTypeConfig>& entity, AclConfigSm3& parent,
                                 Acl::AclType aclType);
Kelp::Ptr<AclSm5> AclSm5Is(const Kelp::Ptr<const Acl::AclConfig>& entity, ConfigSm4& parent,
                           const Kelp::String& aclName);
Kelp::Ptr<CurrCfgSm6> CurrCfgSm6Is(const Kelp::Ptr<const Acl::AclSubConfig>& entity, AclSm5& parent);

#undef SCAN_OPERATIONS

}  // namespace Velo::VeloAcl
