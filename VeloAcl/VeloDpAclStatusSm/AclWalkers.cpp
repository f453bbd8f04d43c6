#include <VeloAcl/VeloDpAclStatusSm/AclWalkers.h>

namespace Velo::VeloAcl {

using Acl::AclType;
using Kiv::UniqueId;

AclConfigSm3::AclConfigSm3(const Kelp::Ptr<const Acl::Config>& entity, VeloDpAclStatusSm& machine)
    : TopWalker("AclConfigSm3", machine, nullptr, entity) {
  task1Is();
  task2Is();
  task3Is();
  task4Is();
}
AclConfigSm3::~AclConfigSm3() = default;

void AclConfigSm3::task1Is() { taskIs(1, "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask1"); }
void AclConfigSm3::task2Is() { taskIs(2, "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask2"); }
void AclConfigSm3::task3Is() { taskIs(3, "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask3"); }
void AclConfigSm3::task4Is() { taskIs(4, "Velo::VeloAcl::VeloDpAclStatusSm-AclConfigSm3InputScanTask4"); }

Kelp::Ptr<ConfigSm4> AclConfigSm3::childSmConfigAclAclTypeConfigPtrConstIs(
    const Kelp::Ptr<const Acl::AclTypeConfig>& entity, AclType aclType) {
  return ConfigSm4Is(entity, *this, aclType);
}

void AclConfigSm3::handleConfig(AclType aclType) {
  if (!active()) return;
  traceStatus(8, "k: {}", aclType);
  if (const auto lists = en()->config(aclType)) {
    childSmConfigAclAclTypeConfigPtrConstIs(lists, aclType);
  } else {
    childSmConfigAclAclTypeConfigPtrConstDel(aclType);
  }
}
void AclConfigSm3::handleConfig1Reactor(AclType aclType) { handleConfig1(aclType); }
void AclConfigSm3::handleConfig2Reactor(AclType aclType) { handleConfig2(aclType); }
void AclConfigSm3::handleConfig3Reactor(AclType aclType) { handleConfig3(aclType); }
void AclConfigSm3::handleConfig4Reactor(AclType aclType) { handleConfig4(aclType); }

// The upper end of the onChildEvent chain: what a walker below withdraws, with the keys of all on the way.
void AclConfigSm3::onChildEvent1(AclType aclType, const Kelp::String& aclName) {
  machine().eventToAclConfigStream(aclType, aclName, std::nullopt);
}
void AclConfigSm3::onChildEvent2(AclType aclType, const Kelp::String& aclName, const UniqueId& uid) {
  machine().eventToIpRuleCfgStream(aclType, aclName, uid, nullptr);
}
void AclConfigSm3::onChildEvent3(AclType aclType, const Kelp::String& aclName, const UniqueId& uid) {
  machine().eventToIp6RuleCfgStream(aclType, aclName, uid, nullptr);
}
void AclConfigSm3::onChildEvent4(AclType aclType, const Kelp::String& aclName, const UniqueId& uid) {
  machine().eventToMacRuleCfgStream(aclType, aclName, uid, nullptr);
}

void AclConfigSm3::doInputScan() {
  for (int number = 1; number <= 4; ++number) {
    if (active()) startScan(number);
  }
}

void AclConfigSm3::scan(int number) {
  scanMap(
      number, places_[number - 1], raw() ? &raw()->config() : nullptr, [this](AclType k) { handleConfig(k); },
      [this](AclType k) { return children_.find(k); });
}

void AclConfigSm3::scanFlagIs(int number) {
  const auto& flags = machine().inputSmScanState();
  switch (number) {
    case 1:
      flags->aclConfigStreamScanIs(true);
      break;
    case 2:
      flags->ipRuleCfgStreamScanIs(true);
      break;
    case 3:
      flags->ip6RuleCfgStreamScanIs(true);
      break;
    default:
      flags->macRuleCfgStreamScanIs(true);
      break;
  }
}

void AclConfigSm3::doDeleteAll() {
  if (!active()) return;
  traceStatus(9, "");
  childSmConfigAclAclTypeConfigPtrConstDelAll();
}

void AclConfigSm3::dispatch(const Zeb::Change& change) {
  if (!change.is(Acl::Config::configAttribute())) return;
  const AclType aclType = change.keyAs<AclType>();
  handleConfig1Reactor(aclType);
  handleConfig2Reactor(aclType);
  handleConfig3Reactor(aclType);
  handleConfig4Reactor(aclType);
}

ConfigSm4::ConfigSm4(const Kelp::Ptr<const Acl::AclTypeConfig>& entity, AclConfigSm3& parent, AclType aclType)
    : WalkerOf("ConfigSm4", parent.machine(), &parent, entity), aclType_(aclType) {}
ConfigSm4::~ConfigSm4() = default;

Kelp::Ptr<AclSm5> ConfigSm4::childSmAclAclAclConfigPtrConstIs(const Kelp::Ptr<const Acl::AclConfig>& entity,
                                                              const Kelp::String& aclName) {
  return AclSm5Is(entity, *this, aclName);
}

void ConfigSm4::handleAcl1(const Kelp::String& aclName) {
  if (!active()) return;
  traceStatus(8, "k: {}", aclName);
  versionsSeen();
  const auto list = en()->acl(aclName);
  machine().eventToAclConfigStream(aclType_, aclName, list ? std::optional(list) : std::nullopt);
}

void ConfigSm4::handleAcl(const Kelp::String& aclName) {
  if (!active()) return;
  traceStatus(8, "k: {}", aclName);
  versionsSeen();
  if (const auto list = en()->acl(aclName)) {
    childSmAclAclAclConfigPtrConstIs(list, aclName);
  } else {
    childSmAclAclAclConfigPtrConstDel(aclName);
  }
}
void ConfigSm4::handleAcl1Reactor(const Kelp::String& aclName) { handleAcl1(aclName); }
void ConfigSm4::handleAcl2Reactor(const Kelp::String& aclName) { handleAcl2(aclName); }
void ConfigSm4::handleAcl3Reactor(const Kelp::String& aclName) { handleAcl3(aclName); }
void ConfigSm4::handleAcl4Reactor(const Kelp::String& aclName) { handleAcl4(aclName); }

void ConfigSm4::onChildEvent2(const Kelp::String& aclName, const UniqueId& uid) {
  parentSm()->onChildEvent2(aclType_, aclName, uid);
}
void ConfigSm4::onChildEvent3(const Kelp::String& aclName, const UniqueId& uid) {
  parentSm()->onChildEvent3(aclType_, aclName, uid);
}
void ConfigSm4::onChildEvent4(const Kelp::String& aclName, const UniqueId& uid) {
  parentSm()->onChildEvent4(aclType_, aclName, uid);
}

void ConfigSm4::doInputScan() {
  for (int number = 1; number <= 4; ++number) {
    if (active()) scan(number);
  }
}

void ConfigSm4::scan(int number) {
  const auto* lists = raw() ? &raw()->acl() : nullptr;
  auto& place = places_[number - 1];
  if (number == 1) {
    scanMap(
        number, place, lists, [this](const Kelp::String& k) { handleAcl1(k); }, noChild);
  } else {
    scanMap(
        number, place, lists, [this](const Kelp::String& k) { handleAcl(k); },
        [this](const Kelp::String& k) { return children_.find(k); });
  }
}

void ConfigSm4::doDeleteAll() {
  if (!active()) return;
  traceStatus(9, "");
  KELP_ASSERT(raw()->acl().version() == version_,
              "We missed notifications that happened to acl before the enclosing entity got deleted");
  childSmAclAclAclConfigPtrConstDelAll();
  if (!initialScanDone()) return;
  forEachLeft(*this, raw()->acl(), [this](const Kelp::String& k) { parentSm()->onChildEvent1(aclType_, k); });
}

void ConfigSm4::dispatch(const Zeb::Change& change) {
  if (!change.is(Acl::AclTypeConfig::aclAttribute())) return;
  const Kelp::String& aclName = change.keyAs<Kelp::String>();
  handleAcl1Reactor(aclName);
  handleAcl2Reactor(aclName);
  handleAcl3Reactor(aclName);
  handleAcl4Reactor(aclName);
}

Kelp::Ptr<AclConfigSm3> AclConfigSm3Is(const Kelp::Ptr<const Acl::Config>& entity,
                                       VeloDpAclStatusSm& machine) {
  return topWalkerIs(machine.aclConfigSm3_, entity, machine);
}
Kelp::Ptr<ConfigSm4> ConfigSm4Is(const Kelp::Ptr<const Acl::AclTypeConfig>& entity, AclConfigSm3& parent,
                                 AclType aclType) {
  return parent.children_.is(entity, parent, aclType);
}
Kelp::Ptr<AclSm5> AclSm5Is(const Kelp::Ptr<const Acl::AclConfig>& entity, ConfigSm4& parent,
                           const Kelp::String& aclName) {
  return parent.children_.is(entity, parent, aclName);
}

}  // namespace Velo::VeloAcl
