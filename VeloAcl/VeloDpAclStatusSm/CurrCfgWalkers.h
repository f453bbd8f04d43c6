#pragma once

#include <Acl/Model.h>
#include <VeloAcl/VeloDpAclStatusSm/TopWalker.h>

/// The walkers over one list and its rules in force.
namespace Velo::VeloAcl {

class ConfigSm4;
class CurrCfgSm6;

class AclSm5 final : public WalkerOf<Acl::AclConfig>,
                     public Scan2<AclSm5>,
                     public Scan3<AclSm5>,
                     public Scan4<AclSm5> {
 public:
  AclSm5(const Kelp::Ptr<const Acl::AclConfig>& entity, ConfigSm4& parent, const Kelp::String& aclName);
  ~AclSm5() override;

  const Kelp::String& aclName() const { return aclName_; }
  Acl::AclType aclType() const;
  Kelp::Ptr<CurrCfgSm6> childSmCurrCfgAclAclSubConfigPtrConstIs(
      const Kelp::Ptr<const Acl::AclSubConfig>& entity);
  void childSmCurrCfgAclAclSubConfigPtrConstDel() { child_.del(); }

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
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int number) const override { return placeComplete(places_[number - 2]); }

 private:
  ConfigSm4* parentSm() const;
  void handleCurrCfg();
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>& visit) override { child_.forEach(visit); }
  uint64_t mark() const override { return reinterpret_cast<uintptr_t>(raw()->currCfg().get()); }

  friend Kelp::Ptr<CurrCfgSm6> CurrCfgSm6Is(const Kelp::Ptr<const Acl::AclSubConfig>& entity, AclSm5& parent);
  const Kelp::String aclName_;
  OnlyChild<CurrCfgSm6> child_;
  std::array<ScanPlace<bool>, 3> places_;
};

class CurrCfgSm6 final : public WalkerOf<Acl::AclSubConfig>,
                         public Scan2<CurrCfgSm6>,
                         public Scan3<CurrCfgSm6>,
                         public Scan4<CurrCfgSm6> {
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
  void doDeleteAll() override;

  void scan(int number) override;
  bool scanComplete(int number) const override { return placeComplete(places_[number - 2]); }

 private:
  AclSm5* parentSm() const { return static_cast<AclSm5*>(parent()); }
  void dispatch(const Zeb::Change& change) override;
  void forEachChild(const std::function<void(Walker&)>&) override {}
  void versionsSeen() override;
  uint64_t mark() const override;

  std::array<ScanPlace<Kiv::UniqueId>, 3> places_;
  std::array<uint32_t, 3> versions_{};
};

/// The walker of an entity as its parent's child: the one that is there when it watches the same entity, else
/// a new one, which follows the entity and scans it from here on.
Kelp::Ptr<AclSm5> AclSm5Is(const Kelp::Ptr<const Acl::AclConfig>& entity, ConfigSm4& parent,
                           const Kelp::String& aclName);
Kelp::Ptr<CurrCfgSm6> CurrCfgSm6Is(const Kelp::Ptr<const Acl::AclSubConfig>& entity, AclSm5& parent);

}  // namespace Velo::VeloAcl
