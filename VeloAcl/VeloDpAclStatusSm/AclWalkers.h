#pragma once

#include <VeloAcl/VeloDpAclStatusSm/CurrCfgWalkers.h>

/// The walkers over the lists.
namespace Velo::VeloAcl {

class AclConfigSm3;

struct ListsOfType {
  using Entity = Acl::AclTypeConfig;
  static const auto& elements(const Entity& lists) { return lists.acl(); }
  static const Zeb::Attribute& attribute() { return Entity::aclAttribute(); }
  static auto at(const Entity& lists, const Kelp::String& key) { return lists.acl(key); }
  static constexpr const char* missed =
      "We missed notifications that happened to acl before the enclosing entity got deleted";
};
class ConfigSm4 final : public TreeWalker<ConfigSm4, Below<AclConfigSm3, Acl::AclType>, Walks<ListsOfType>,
                                          AclSm5, Scans<1, 2, 3, 4>> {
 public:
  static constexpr auto walkerName = "ConfigSm4";
  using TreeWalker::TreeWalker;

  Kelp::Ptr<AclSm5> childSmAclAclAclConfigPtrConstIs(const Kelp::Ptr<const Acl::AclConfig>& entity,
                                                     const Kelp::String& aclName) {
    return childIs(entity, aclName);
  }
  void childSmAclAclAclConfigPtrConstDel(const Kelp::String& aclName) { childDel(aclName); }
  void childSmAclAclAclConfigPtrConstDelAll() { childDelAll(); }

  /// The list itself is a leaf of scan 1.
  void handleAcl1(const Kelp::String& aclName);
  void handleAcl2(const Kelp::String& aclName) { follow(aclName); }
  void handleAcl3(const Kelp::String& aclName) { follow(aclName); }
  void handleAcl4(const Kelp::String& aclName) { follow(aclName); }
  void handleAcl1Reactor(const Kelp::String& aclName) { handleAcl1(aclName); }
  void handleAcl2Reactor(const Kelp::String& aclName) { handleAcl2(aclName); }
  void handleAcl3Reactor(const Kelp::String& aclName) { handleAcl3(aclName); }
  void handleAcl4Reactor(const Kelp::String& aclName) { handleAcl4(aclName); }
  void withdraw1(const Kelp::String& aclName);
  using Table =
      HandlerTable<Handlers<&ConfigSm4::handleAcl1, &ConfigSm4::handleAcl1Reactor, &ConfigSm4::withdraw1>,
                   Handlers<&ConfigSm4::handleAcl2, &ConfigSm4::handleAcl2Reactor>,
                   Handlers<&ConfigSm4::handleAcl3, &ConfigSm4::handleAcl3Reactor>,
                   Handlers<&ConfigSm4::handleAcl4, &ConfigSm4::handleAcl4Reactor>>;

  void onChildEvent2(const Kelp::String& aclName, const Kiv::UniqueId& uid);
  void onChildEvent3(const Kelp::String& aclName, const Kiv::UniqueId& uid);
  void onChildEvent4(const Kelp::String& aclName, const Kiv::UniqueId& uid);
};

struct TypesOfLists {
  using Entity = Acl::Config;
  static const auto& elements(const Entity& types) { return types.config(); }
  static const Zeb::Attribute& attribute() { return Entity::configAttribute(); }
  static auto at(const Entity& types, Acl::AclType key) { return types.config(key); }
};
class AclConfigSm3 final
    : public TreeWalker<AclConfigSm3, Top, Walks<TypesOfLists>, ConfigSm4, Scans<1, 2, 3, 4>> {
 public:
  static constexpr auto walkerName = "AclConfigSm3";
  AclConfigSm3(const Kelp::Ptr<const Acl::Config>& entity, VeloDpAclStatusSm& machine)
      : TreeWalker(entity, machine) {
    task1Is(), task2Is(), task3Is(), task4Is();
  }

  void task1Is() { taskIs(1, "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask1"); }
  void task2Is() { taskIs(2, "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask2"); }
  void task3Is() { taskIs(3, "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask3"); }
  void task4Is() { taskIs(4, "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask4"); }
  void task1Del() { taskDel(1); }
  void task2Del() { taskDel(2); }
  void task3Del() { taskDel(3); }
  void task4Del() { taskDel(4); }
  void task1Dispatch() { driveScan(1); }
  void task2Dispatch() { driveScan(2); }
  void task3Dispatch() { driveScan(3); }
  void task4Dispatch() { driveScan(4); }
  static constexpr bool (InputSmScanState::*streamScanIs[])(bool) = {
      &InputSmScanState::aclConfigStreamScanIs, &InputSmScanState::ipRuleCfgStreamScanIs,
      &InputSmScanState::ip6RuleCfgStreamScanIs, &InputSmScanState::macRuleCfgStreamScanIs};

  Kelp::Ptr<ConfigSm4> childSmConfigAclAclTypeConfigPtrConstIs(
      const Kelp::Ptr<const Acl::AclTypeConfig>& entity, Acl::AclType aclType) {
    return childIs(entity, aclType);
  }
  void childSmConfigAclAclTypeConfigPtrConstDel(Acl::AclType aclType) { childDel(aclType); }
  void childSmConfigAclAclTypeConfigPtrConstDelAll() { childDelAll(); }

  void handleConfig1(Acl::AclType aclType) { follow(aclType); }
  void handleConfig2(Acl::AclType aclType) { follow(aclType); }
  void handleConfig3(Acl::AclType aclType) { follow(aclType); }
  void handleConfig4(Acl::AclType aclType) { follow(aclType); }
  void handleConfig1Reactor(Acl::AclType aclType) { handleConfig1(aclType); }
  void handleConfig2Reactor(Acl::AclType aclType) { handleConfig2(aclType); }
  void handleConfig3Reactor(Acl::AclType aclType) { handleConfig3(aclType); }
  void handleConfig4Reactor(Acl::AclType aclType) { handleConfig4(aclType); }
  using Table = HandlerTable<Handlers<&AclConfigSm3::handleConfig1, &AclConfigSm3::handleConfig1Reactor>,
                             Handlers<&AclConfigSm3::handleConfig2, &AclConfigSm3::handleConfig2Reactor>,
                             Handlers<&AclConfigSm3::handleConfig3, &AclConfigSm3::handleConfig3Reactor>,
                             Handlers<&AclConfigSm3::handleConfig4, &AclConfigSm3::handleConfig4Reactor>>;

  // The upper end of the onChildEvent chain: a walker below has withdrawn an element. The arguments are the
  // keys of all walkers on the way.
  void onChildEvent1(Acl::AclType aclType, const Kelp::String& aclName);
  void onChildEvent2(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid);
  void onChildEvent3(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid);
  void onChildEvent4(Acl::AclType aclType, const Kelp::String& aclName, const Kiv::UniqueId& uid);
};

// As in CurrCfgWalkers.h.
Kelp::Ptr<AclConfigSm3> AclConfigSm3Is(const Kelp::Ptr<const Acl::Config>& entity,
                                       VeloDpAclStatusSm& machine);
inline Kelp::Ptr<ConfigSm4> ConfigSm4Is(const Kelp::Ptr<const Acl::AclTypeConfig>& entity,
                                        AclConfigSm3& parent, Acl::AclType aclType) {
  return parent.childIs(entity, aclType);
}

}  // namespace Velo::VeloAcl
