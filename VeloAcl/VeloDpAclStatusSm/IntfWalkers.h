#pragma once

#include <Acl/Model.h>
#include <VeloAcl/VeloDpAclStatusSm/TopWalker.h>

/// The walkers over the interface bindings.
namespace Velo::VeloAcl {

class ConfigSm1;
class IntfSm2;

class AclIntfConfigSm0 final : public TopWalker<Acl::IntfConfig>, public Scan0<AclIntfConfigSm0> {
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

  uint64_t mark() const override { return raw()->config().changes(); }

  friend Kelp::Ptr<ConfigSm1> ConfigSm1Is(const Kelp::Ptr<const Acl::IntfTypeConfig>& entity,
                                          AclIntfConfigSm0& parent, Acl::AclType aclType);
  ChildWalkers<Acl::AclType, ConfigSm1> children_;
  ScanPlace<Acl::AclType> place_;
};

class ConfigSm1 final : public WalkerOf<Acl::IntfTypeConfig>, public Scan0<ConfigSm1> {
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
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int) const override { return placeComplete(place_); }

 private:
  AclIntfConfigSm0* parentSm() const { return static_cast<AclIntfConfigSm0*>(parent()); }
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>& visit) override { children_.forEach(visit); }
  void versionsSeen() override { version_ = raw()->intf().version(); }
  uint64_t mark() const override { return raw()->intf().changes(); }

  friend Kelp::Ptr<IntfSm2> IntfSm2Is(const Kelp::Ptr<const Acl::AclIntf>& entity, ConfigSm1& parent,
                                      Acl::AclDirection direction);
  const Acl::AclType aclType_;
  ChildWalkers<Acl::AclDirection, IntfSm2> children_;
  ScanPlace<Acl::AclDirection> place_;
  uint32_t version_ = 0;
};

class IntfSm2 final : public WalkerOf<Acl::AclIntf>, public Scan0<IntfSm2> {
 public:
  IntfSm2(const Kelp::Ptr<const Acl::AclIntf>& entity, ConfigSm1& parent, Acl::AclDirection direction);
  ~IntfSm2() override;

  void handleIntf0(const Nimnet::IntfId& intfId);
  void handleIntf0Reactor(const Nimnet::IntfId& intfId);

  void doInputScan() override { doInputScan0(); }
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int) const override { return placeComplete(place_); }

 private:
  ConfigSm1* parentSm() const { return static_cast<ConfigSm1*>(parent()); }
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>&) override {}
  void versionsSeen() override { version_ = raw()->intf().version(); }
  uint64_t mark() const override { return raw()->intf().changes(); }

  const Acl::AclDirection direction_;
  ScanPlace<Nimnet::IntfId> place_;
  uint32_t version_ = 0;
};

/// The walker as the machine's own: the one that is there when it watches the same entity, else a new one,
/// which follows the entity and scans it from here on.
Kelp::Ptr<AclIntfConfigSm0> AclIntfConfigSm0Is(const Kelp::Ptr<const Acl::IntfConfig>& entity,
                                               VeloDpAclStatusSm& machine);
/// The walker of an entity as its parent's child: the one that is there when it watches the same entity, else
/// a new one, which follows the entity and scans it from here on.
Kelp::Ptr<ConfigSm1> ConfigSm1Is(const Kelp::Ptr<const Acl::IntfTypeConfig>& entity, AclIntfConfigSm0& parent,
                                 Acl::AclType aclType);
Kelp::Ptr<IntfSm2> IntfSm2Is(const Kelp::Ptr<const Acl::AclIntf>& entity, ConfigSm1& parent,
                             Acl::AclDirection direction);

}  // namespace Velo::VeloAcl
