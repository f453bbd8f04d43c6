#pragma once

#include <VeloAcl/VeloDpAclStatusSm/CurrCfgWalkers.h>

/// The walkers over the lists.
namespace Velo::VeloAcl {

class ConfigSm4;

class AclConfigSm3 final : public TopWalker<Acl::Config>,
                           public Scan1<AclConfigSm3>,
                           public Scan2<AclConfigSm3>,
                           public Scan3<AclConfigSm3>,
                           public Scan4<AclConfigSm3> {
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

  uint64_t mark() const override { return raw()->config().changes(); }

  friend Kelp::Ptr<ConfigSm4> ConfigSm4Is(const Kelp::Ptr<const Acl::AclTypeConfig>& entity,
                                          AclConfigSm3& parent, Acl::AclType aclType);
  ChildWalkers<Acl::AclType, ConfigSm4> children_;
  std::array<ScanPlace<Acl::AclType>, 4> places_;
};

class ConfigSm4 final : public WalkerOf<Acl::AclTypeConfig>,
                        public Scan1<ConfigSm4>,
                        public Scan2<ConfigSm4>,
                        public Scan3<ConfigSm4>,
                        public Scan4<ConfigSm4> {
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
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int number) const override { return placeComplete(places_[number - 1]); }

 private:
  AclConfigSm3* parentSm() const { return static_cast<AclConfigSm3*>(parent()); }
  void handleAcl(const Kelp::String& aclName);
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>& visit) override { children_.forEach(visit); }
  void versionsSeen() override { version_ = raw()->acl().version(); }
  uint64_t mark() const override { return raw()->acl().changes(); }

  friend Kelp::Ptr<AclSm5> AclSm5Is(const Kelp::Ptr<const Acl::AclConfig>& entity, ConfigSm4& parent,
                                    const Kelp::String& aclName);
  const Acl::AclType aclType_;
  ChildWalkers<Kelp::String, AclSm5> children_;
  std::array<ScanPlace<Kelp::String>, 4> places_;
  uint32_t version_ = 0;
};

/// The walker as the machine's own: the one that is there when it watches the same entity, else a new one,
/// which follows the entity and scans it from here on.
Kelp::Ptr<AclConfigSm3> AclConfigSm3Is(const Kelp::Ptr<const Acl::Config>& entity,
                                       VeloDpAclStatusSm& machine);
/// The walker of an entity as its parent's child: the one that is there when it watches the same entity, else
/// a new one, which follows the entity and scans it from here on.
Kelp::Ptr<ConfigSm4> ConfigSm4Is(const Kelp::Ptr<const Acl::AclTypeConfig>& entity, AclConfigSm3& parent,
                                 Acl::AclType aclType);

}  // namespace Velo::VeloAcl
