#include <VeloAcl/VeloDpAclStatusSm/IntfWalkers.h>

namespace Velo::VeloAcl {

using Acl::AclDirection;
using Acl::AclType;

AclIntfConfigSm0::AclIntfConfigSm0(const Kelp::Ptr<const Acl::IntfConfig>& entity, VeloDpAclStatusSm& machine)
    : TopWalker("AclIntfConfigSm0", machine, nullptr, entity) {
  task0Is();
}
AclIntfConfigSm0::~AclIntfConfigSm0() = default;

void AclIntfConfigSm0::task0Is() {
  taskIs(0, "Velo::VeloAcl::VeloDpAclStatusSm-AclIntfConfigSm0InputScanTask0");
}

Kelp::Ptr<ConfigSm1> AclIntfConfigSm0::childSmConfigAclIntfTypeConfigPtrConstIs(
    const Kelp::Ptr<const Acl::IntfTypeConfig>& entity, AclType aclType) {
  return ConfigSm1Is(entity, *this, aclType);
}

void AclIntfConfigSm0::handleConfig0(AclType aclType) {
  if (!active()) return;
  traceStatus(8, "k: {}", aclType);
  if (const auto types = en()->config(aclType)) {
    childSmConfigAclIntfTypeConfigPtrConstIs(types, aclType);
  } else {
    childSmConfigAclIntfTypeConfigPtrConstDel(aclType);
  }
}
void AclIntfConfigSm0::handleConfig0Reactor(AclType aclType) { handleConfig0(aclType); }

void AclIntfConfigSm0::onChildEvent0(AclType aclType, AclDirection direction, const Nimnet::IntfId& intfId,
                                     const std::optional<Kelp::String>& aclName) {
  machine().eventToAclIntfConfigStream(aclType, direction, intfId, aclName);
}

void AclIntfConfigSm0::scan(int number) {
  scanMap(
      number, place_, raw() ? &raw()->config() : nullptr, [this](AclType k) { handleConfig0(k); },
      [this](AclType k) { return children_.find(k); });
}

void AclIntfConfigSm0::scanFlagIs(int) { machine().inputSmScanState()->aclIntfConfigStreamScanIs(true); }

void AclIntfConfigSm0::doDeleteAll() {
  if (!active()) return;
  traceStatus(9, "");
  childSmConfigAclIntfTypeConfigPtrConstDelAll();
}

void AclIntfConfigSm0::dispatch(const Zeb::Change& change) {
  if (change.is(Acl::IntfConfig::configAttribute())) handleConfig0Reactor(change.keyAs<AclType>());
}

ConfigSm1::ConfigSm1(const Kelp::Ptr<const Acl::IntfTypeConfig>& entity, AclIntfConfigSm0& parent,
                     AclType aclType)
    : WalkerOf("ConfigSm1", parent.machine(), &parent, entity), aclType_(aclType) {}
ConfigSm1::~ConfigSm1() = default;

Kelp::Ptr<IntfSm2> ConfigSm1::childSmIntfAclAclIntfPtrConstIs(const Kelp::Ptr<const Acl::AclIntf>& entity,
                                                              AclDirection direction) {
  return IntfSm2Is(entity, *this, direction);
}

void ConfigSm1::handleIntf0(AclDirection direction) {
  if (!active()) return;
  traceStatus(8, "k: {}", direction);
  versionsSeen();
  if (const auto bindings = en()->intf(direction)) {
    childSmIntfAclAclIntfPtrConstIs(bindings, direction);
  } else {
    childSmIntfAclAclIntfPtrConstDel(direction);
  }
}
void ConfigSm1::handleIntf0Reactor(AclDirection direction) { handleIntf0(direction); }

void ConfigSm1::onChildEvent0(AclDirection direction, const Nimnet::IntfId& intfId,
                              const std::optional<Kelp::String>& aclName) {
  parentSm()->onChildEvent0(aclType_, direction, intfId, aclName);
}

void ConfigSm1::scan(int number) {
  scanMap(
      number, place_, raw() ? &raw()->intf() : nullptr, [this](AclDirection k) { handleIntf0(k); },
      [this](AclDirection k) { return children_.find(k); });
}

void ConfigSm1::doDeleteAll() {
  if (!active()) return;
  traceStatus(9, "");
  KELP_ASSERT(raw()->intf().version() == version_,
              "We missed notifications that happened to intf before the enclosing entity got deleted");
  childSmIntfAclAclIntfPtrConstDelAll();
}

void ConfigSm1::dispatch(const Zeb::Change& change) {
  if (change.is(Acl::IntfTypeConfig::intfAttribute())) handleIntf0Reactor(change.keyAs<AclDirection>());
}

IntfSm2::IntfSm2(const Kelp::Ptr<const Acl::AclIntf>& entity, ConfigSm1& parent, AclDirection direction)
    : WalkerOf("IntfSm2", parent.machine(), &parent, entity), direction_(direction) {}
IntfSm2::~IntfSm2() = default;

void IntfSm2::handleIntf0(const Nimnet::IntfId& intfId) {
  if (!active()) return;
  traceStatus(8, "k: {}", intfId);
  versionsSeen();
  const Kelp::String* bound = en()->intf(intfId);
  machine().eventToAclIntfConfigStream(parentSm()->aclType(), direction_, intfId,
                                       bound ? std::optional(*bound) : std::nullopt);
}
void IntfSm2::handleIntf0Reactor(const Nimnet::IntfId& intfId) { handleIntf0(intfId); }

void IntfSm2::scan(int number) {
  scanMap(
      number, place_, raw() ? &raw()->intf() : nullptr, [this](const Nimnet::IntfId& k) { handleIntf0(k); },
      noChild);
}

void IntfSm2::doDeleteAll() {
  if (!active()) return;
  traceStatus(9, "");
  KELP_ASSERT(raw()->intf().version() == version_,
              "We missed notifications that happened to intf before the enclosing entity got deleted");
  if (!initialScanDone()) return;
  forEachLeft(*this, raw()->intf(),
              [this](const Nimnet::IntfId& k) { parentSm()->onChildEvent0(direction_, k, std::nullopt); });
}

void IntfSm2::dispatch(const Zeb::Change& change) {
  if (change.is(Acl::AclIntf::intfAttribute())) handleIntf0Reactor(change.keyAs<Nimnet::IntfId>());
}

Kelp::Ptr<AclIntfConfigSm0> AclIntfConfigSm0Is(const Kelp::Ptr<const Acl::IntfConfig>& entity,
                                               VeloDpAclStatusSm& machine) {
  return topWalkerIs(machine.aclIntfConfigSm0_, entity, machine);
}
Kelp::Ptr<ConfigSm1> ConfigSm1Is(const Kelp::Ptr<const Acl::IntfTypeConfig>& entity, AclIntfConfigSm0& parent,
                                 AclType aclType) {
  return parent.children_.is(entity, parent, aclType);
}
Kelp::Ptr<IntfSm2> IntfSm2Is(const Kelp::Ptr<const Acl::AclIntf>& entity, ConfigSm1& parent,
                             AclDirection direction) {
  return parent.children_.is(entity, parent, direction);
}

}  // namespace Velo::VeloAcl
