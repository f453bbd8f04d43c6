#pragma once

#include <Acl/Model.h>
#include <VeloAcl/VeloDpAclStatusSm/TopWalker.h>

/// The walkers over the lists and their rules.
namespace Velo::VeloAcl {

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

// The constructing entry points of the framework.
Kelp::Ptr<AclConfigSm3> AclConfigSm3Is(const Kelp::Ptr<const Acl::Config>& entity,
                                       VeloDpAclStatusSm& machine);
Kelp::Ptr<ConfigSm4> ConfigSm4Is(const Kelp::Ptr<const Acl::AclTypeConfig>& entity, AclConfigSm3& parent,
                                 Acl::AclType aclType);
Kelp::Ptr<AclSm5> AclSm5Is(const Kelp::Ptr<const Acl::AclConfig>& entity, ConfigSm4& parent,
                           const Kelp::String& aclName);
Kelp::Ptr<CurrCfgSm6> CurrCfgSm6Is(const Kelp::Ptr<const Acl::AclSubConfig>& entity, AclSm5& parent);

}  // namespace Velo::VeloAcl
