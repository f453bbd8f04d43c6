#pragma once

#include <Acl/Model.h>
#include <VeloAcl/VeloDpAclStatusSm/TreeWalker.h>

/// The walkers over the interface bindings.
namespace Velo::VeloAcl {

class AclIntfConfigSm0;
class ConfigSm1;

struct BoundInterfaces {
  using Entity = Acl::AclIntf;
  static const auto& elements(const Entity& bindings) { return bindings.intf(); }
  static const Zeb::Attribute& attribute() { return Entity::intfAttribute(); }
  static constexpr const char* missed =
      "We missed notifications that happened to intf before the enclosing entity got deleted";
};
class IntfSm2 final : public TreeWalker<IntfSm2, Below<ConfigSm1, Acl::AclDirection>, Walks<BoundInterfaces>,
                                        NoChild, Scans<0>> {
 public:
  static constexpr auto walkerName = "IntfSm2";
  using TreeWalker::TreeWalker;

  void handleIntf0(const Nimnet::IntfId& intfId);
  void handleIntf0Reactor(const Nimnet::IntfId& intfId) { handleIntf0(intfId); }
  void withdraw0(const Nimnet::IntfId& intfId);
  using Table =
      HandlerTable<Handlers<&IntfSm2::handleIntf0, &IntfSm2::handleIntf0Reactor, &IntfSm2::withdraw0>>;
};

struct DirectionsOfType {
  using Entity = Acl::IntfTypeConfig;
  static const auto& elements(const Entity& directions) { return directions.intf(); }
  static const Zeb::Attribute& attribute() { return Entity::intfAttribute(); }
  static auto at(const Entity& directions, Acl::AclDirection key) { return directions.intf(key); }
  static constexpr const char* missed = BoundInterfaces::missed;
};
class ConfigSm1 final : public TreeWalker<ConfigSm1, Below<AclIntfConfigSm0, Acl::AclType>,
                                          Walks<DirectionsOfType>, IntfSm2, Scans<0>> {
 public:
  static constexpr auto walkerName = "ConfigSm1";
  using TreeWalker::TreeWalker;

  Kelp::Ptr<IntfSm2> childSmIntfAclAclIntfPtrConstIs(const Kelp::Ptr<const Acl::AclIntf>& entity,
                                                     Acl::AclDirection direction) {
    return childIs(entity, direction);
  }
  void childSmIntfAclAclIntfPtrConstDel(Acl::AclDirection direction) { childDel(direction); }
  void childSmIntfAclAclIntfPtrConstDelAll() { childDelAll(); }

  void handleIntf0(Acl::AclDirection direction) { follow(direction); }
  void handleIntf0Reactor(Acl::AclDirection direction) { handleIntf0(direction); }
  using Table = HandlerTable<Handlers<&ConfigSm1::handleIntf0, &ConfigSm1::handleIntf0Reactor>>;

  void onChildEvent0(Acl::AclDirection direction, const Nimnet::IntfId& intfId);
};

struct TypesOfBindings {
  using Entity = Acl::IntfConfig;
  static const auto& elements(const Entity& types) { return types.config(); }
  static const Zeb::Attribute& attribute() { return Entity::configAttribute(); }
  static auto at(const Entity& types, Acl::AclType key) { return types.config(key); }
};
class AclIntfConfigSm0 final
    : public TreeWalker<AclIntfConfigSm0, Top, Walks<TypesOfBindings>, ConfigSm1, Scans<0>> {
 public:
  static constexpr auto walkerName = "AclIntfConfigSm0";
  AclIntfConfigSm0(const Kelp::Ptr<const Acl::IntfConfig>& entity, VeloDpAclStatusSm& machine)
      : TreeWalker(entity, machine) {
    task0Is();
  }

  void task0Is() { taskIs(0, "Velo::VeloAcl::VeloDpAclStatusSm-AclIntfConfigSm0InputScanTask0"); }
  void task0Del() { taskDel(0); }
  void task0Dispatch() { driveScan(0); }
  static constexpr bool (InputSmScanState::*streamScanIs[])(bool) = {
      &InputSmScanState::aclIntfConfigStreamScanIs};

  Kelp::Ptr<ConfigSm1> childSmConfigAclIntfTypeConfigPtrConstIs(
      const Kelp::Ptr<const Acl::IntfTypeConfig>& entity, Acl::AclType aclType) {
    return childIs(entity, aclType);
  }
  void childSmConfigAclIntfTypeConfigPtrConstDel(Acl::AclType aclType) { childDel(aclType); }
  void childSmConfigAclIntfTypeConfigPtrConstDelAll() { childDelAll(); }

  void handleConfig0(Acl::AclType aclType) { follow(aclType); }
  void handleConfig0Reactor(Acl::AclType aclType) { handleConfig0(aclType); }
  using Table =
      HandlerTable<Handlers<&AclIntfConfigSm0::handleConfig0, &AclIntfConfigSm0::handleConfig0Reactor>>;

  void onChildEvent0(Acl::AclType aclType, Acl::AclDirection direction, const Nimnet::IntfId& intfId) {
    machine().eventToAclIntfConfigStream(aclType, direction, intfId, std::nullopt);
  }
};

// The walker for an entity: the present one, which must watch the same entity, or a new one, which is
// started.
Kelp::Ptr<AclIntfConfigSm0> AclIntfConfigSm0Is(const Kelp::Ptr<const Acl::IntfConfig>& entity,
                                               VeloDpAclStatusSm& machine);
inline Kelp::Ptr<ConfigSm1> ConfigSm1Is(const Kelp::Ptr<const Acl::IntfTypeConfig>& entity,
                                        AclIntfConfigSm0& parent, Acl::AclType aclType) {
  return parent.childIs(entity, aclType);
}
inline Kelp::Ptr<IntfSm2> IntfSm2Is(const Kelp::Ptr<const Acl::AclIntf>& entity, ConfigSm1& parent,
                                    Acl::AclDirection direction) {
  return parent.childIs(entity, direction);
}

}  // namespace Velo::VeloAcl
