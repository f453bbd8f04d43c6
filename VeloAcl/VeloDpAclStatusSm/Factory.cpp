#include <VeloAcl/LoadOrder.h>
#include <VeloAcl/VeloDpAclStatusSm/Factory.h>
#include <Zeb/TypeModule.h>

namespace Velo::VeloAcl {

namespace {

[[gnu::init_priority(LoadOrder::statusMachineTypes)]] const Zeb::TypeModule statusMachineModule(
    "VeloDpAclStatusSm", {
                             Zeb::typeEntry(&veloDpAclStatusSmFactory),
                             Zeb::typeEntry<InputSmScanState>(),
                             Zeb::typeEntry<OutputState>(),
                             Zeb::typeEntry<LocalAttrStore>(),
                             Zeb::typeEntry<LocalAttrStore::Holder>(),
                         });

}  // namespace

Kelp::Ptr<VeloDpAclStatusSm> veloDpAclStatusSmFactory(
    const Kelp::Ptr<const Acl::Config>& aclConfig, const Kelp::Ptr<const Acl::IntfConfig>& aclIntfConfig,
    const Arguments::Counters& inCounters, const Arguments::Counters& macOutCounters,
    const Arguments::Counters& ipOutCounters, const Arguments::Counters& ip6OutCounters,
    const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Rix::SmControl& control) {
  const auto machine = MemSlab::make<VeloDpAclStatusSm>(aclConfig, aclIntfConfig, inCounters, macOutCounters,
                                                        ipOutCounters, ip6OutCounters, aclStatus, control);
  machine->handleInitialized();
  return machine;
}

}  // namespace Velo::VeloAcl
