#include <Hive/Cell.h>
#include <Rix/InReactor.h>
#include <VeloAcl/VeloDpAclStatusSm/Factory.h>
#include <VeloAcl/VeloPlugin/AclPlugin.h>

namespace Velo::VeloAcl {

AclPlugin::AclPlugin(const Kelp::String& name) : VeloPlugin(name) {
  merged_->parentIs(this);
  aclConfigIs();
  aclConfigSOIs(aclConfig());
  giveMirroringHelper();
}

AclPlugin::~AclPlugin() {
  nodeFlagSet(Kelp::nodeLive, false);
  merged_->clear();
  merged_->parentIs(nullptr);
  aclConfigDel();
  aclConfigSODel();
  aclAggregatorSmDel();
  aclHelperDel();
  inputStepDel();
  outputStepDel();
  inCountersDel();
  macOutCountersDel();
  ipOutCountersDel();
  ip6OutCountersDel();
  dpAclStatusSmDel();
  intfConfigIs(nullptr);
}

void AclPlugin::mountsComplete(const Kelp::Ptr<Hive::EntityManager>& entities) {
  aclInputDirIs(Kelp::ptrCast<const Zeb::Dir>(entities->getEntity("acl/config/input")));
  aclCliInputIs(Kelp::ptrCast<const Acl::Input::Config>(entities->getEntity("acl/config/cli")));
  aclIntfInputIs(Kelp::ptrCast<const Zeb::Dir>(entities->getEntity("acl/intf/config/input")));
  aclIntfCliInputIs(Kelp::ptrCast<const Acl::IntfConfig>(entities->getEntity("acl/intf/config/cli")));
  aclStatusIs(Kelp::ptrCast<Acl::StatusDp>(entities->getEntity(Cell::path("acl/status/dp/kepa", 0))));
}

void AclPlugin::setupPluginManager() {
  aclAggregatorSmIs(aclInputDir(), aclCliInput(), aclConfig())->hasNotificationActiveIs(true);

  const Kelp::Ptr<Acl::IntfConfig> merged = Acl::intfConfigFactory("intfConfig");
  merged->initialize();
  intfConfigIs(merged);

  const auto sources = MemSlab::make<Hive::DirMerged>("aclIntfConfig");
  sources->addPtr(aclIntfCliInput());
  intfConfigDirMergeSmIs(Hive::DirMergeSm::DirMergeSmIs(sources));
  intfConfigDirMergeSm()->addInputDir(aclIntfInput());
  intfConfigSmIs(AclAgent::intfConfigSmFactory(sources, intfConfig()));

  manager()->sharedObjects()->sharedObjectIs(aclConfigSO());
  merged_->listsIs(aclConfig());
  merged_->bindingsIs(intfConfig());
  merged_->listMergerIs(aclAggregatorSm());
  merged_->bindingMergerIs(intfConfigSm());
  manager()->sharedObjects()->sharedObjectIs(merged_);
}

namespace {

/// What the lists of this plugin can do, as the status says it.
constexpr bool (Acl::StatusDp::*supported[])(bool) = {
    &Acl::StatusDp::dscpFilterSupportedIs,
    &Acl::StatusDp::dpAclTcSupportedIs,
    &Acl::StatusDp::dpAclSupportedIs,
    &Acl::StatusDp::dpIpEgressAclSupportedIs,
    &Acl::StatusDp::dpIp6AclSupportedIs,
    &Acl::StatusDp::dpIp6EgressAclSupportedIs,
    &Acl::StatusDp::dpAclHopLimitSupportedIs,
    &Acl::StatusDp::dpIpAclMirrorActionSupportedIs,
    &Acl::StatusDp::dpIpv6AclMirrorActionSupportedIs,
    &Acl::StatusDp::dpMacAclMirrorActionSupportedIs,
    &Acl::StatusDp::dpAclCountersSupportedIs,
    &Acl::StatusDp::dpMacAclSupportedIs,
    &Acl::StatusDp::dpMacEgressAclSupportedIs,
    &Acl::StatusDp::dpAclDscpMaskSupportedIs,
    &Acl::StatusDp::dpAclDscpMaskIpv6SupportedIs,
    &Acl::StatusDp::dpAclDscpSupportedIs,
    &Acl::StatusDp::dpAclSctpSupportedIs,
    &Acl::StatusDp::dpAclSctpPortMatchSupportedIs,
    &Acl::StatusDp::dpAclVlanSupportedIs,
    &Acl::StatusDp::vlanSupportedIs,
};

}  // namespace

void AclPlugin::activeInit() {
  inCountersIs("DpAclInRuleMatches", CtrPool::FeatureId(4));
  macOutCountersIs("DpAclMacOutRuleMatches", CtrPool::FeatureId(3));
  ipOutCountersIs("DpAclIpOutRuleMatches", CtrPool::FeatureId(1));
  ip6OutCountersIs("DpAclIp6OutRuleMatches", CtrPool::FeatureId(2));
  for (const auto& counters : {inCounters(), macOutCounters(), ipOutCounters(), ip6OutCounters()}) {
    manager()->counterHolder()->collectionIs(counters);
  }

  dpAclStatusSmIs(aclConfig(), intfConfig(), inCounters(), macOutCounters(), ipOutCounters(),
                  ip6OutCounters(), aclStatus(), Rix::SmControl{})
      ->hasNotificationActiveIs(true);
  aclHelperIs(aclConfig(), intfConfig(), aclStatus(), inCounters(), macOutCounters(), ipOutCounters(),
              ip6OutCounters());
  inputStepIs(aclHelper());
  outputStepIs(aclHelper());
  manager()->pipeline()->addStep(Kelp::Ptr<InputPipelineStep>(inputStep()));
  manager()->pipeline()->addStep(Kelp::Ptr<OutputPipelineStep>(outputStep()));

  for (const auto supportedIs : supported) ((*aclStatus()).*supportedIs)(true);
  aclStatus()->initialize();
}

template <class T>
bool AclPlugin::hold(const Zeb::Attribute& attribute, Kelp::Ptr<T>& member, const Kelp::Ptr<T>& value) {
  if (member == value) return false;
  if constexpr (std::is_base_of_v<Zeb::Entity, T>) {
    if (member && member->parent() == this) member->parentIs(nullptr);
    if (value) value->parentIs(this);
  }
  return zebAssign(attribute, member, value);
}

template <class T, class Make>
const Kelp::Ptr<T>& AclPlugin::keepOrMake(const Zeb::Attribute& attribute, Kelp::Ptr<T>& member, bool keep,
                                          const Make& make) {
  if (!keep) hold(attribute, member, Kelp::Ptr<T>(make()));
  return member;
}

template <class T>
Kelp::Ptr<T> AclPlugin::take(const Zeb::Attribute& attribute, Kelp::Ptr<T>& member) {
  const Kelp::Ptr<T> held = member;
  hold(attribute, member, Kelp::Ptr<T>());
  return held;
}

const Kelp::Ptr<Acl::Config>& AclPlugin::aclConfigIs() {
  return keepOrMake(aclConfigAttribute(), aclConfig_, aclConfig_ != nullptr,
                    [] { return MemSlab::make<Acl::Config>("aclConfig"); });
}
Kelp::Ptr<Acl::Config> AclPlugin::aclConfigDel() { return take(aclConfigAttribute(), aclConfig_); }

const Kelp::Ptr<VeloAclConfigSharedObject>& AclPlugin::aclConfigSOIs(const Kelp::Ptr<Acl::Config>& config) {
  return keepOrMake(aclConfigSOAttribute(), aclConfigSO_, aclConfigSO_ && aclConfigSO_->aclConfig() == config,
                    [&] { return veloAclConfigSharedObjectFactory(config); });
}
Kelp::Ptr<VeloAclConfigSharedObject> AclPlugin::aclConfigSODel() {
  return take(aclConfigSOAttribute(), aclConfigSO_);
}

const Kelp::Ptr<Acl::AclConfigAggregatorSm>& AclPlugin::aclAggregatorSmIs(
    const Kelp::Ptr<const Zeb::Dir>& inputDir, const Kelp::Ptr<const Acl::Input::Config>& cliInput,
    const Kelp::Ptr<Acl::Config>& config) {
  return keepOrMake(aclAggregatorSmAttribute(), aclAggregatorSm_, aclAggregatorSm_ != nullptr, [&] {
    return Acl::AclConfigAggregatorSm::AclConfigAggregatorSmIs(inputDir, cliInput, config);
  });
}
Kelp::Ptr<Acl::AclConfigAggregatorSm> AclPlugin::aclAggregatorSmDel() {
  return take(aclAggregatorSmAttribute(), aclAggregatorSm_);
}

bool AclPlugin::intfConfigIs(const Kelp::Ptr<Acl::IntfConfig>& intfs) {
  return hold(intfConfigAttribute(), intfConfig_, intfs);
}

const Kelp::Ptr<DataplaneAclHelper>& AclPlugin::aclHelperIs(
    const Kelp::Ptr<Acl::Config>& config, const Kelp::Ptr<Acl::IntfConfig>& intfs,
    const Kelp::Ptr<Acl::StatusDp>& status, const Kelp::Ptr<Counters>& in, const Kelp::Ptr<Counters>& macOut,
    const Kelp::Ptr<Counters>& ipOut, const Kelp::Ptr<Counters>& ip6Out) {
  const bool same = aclHelper_ && aclHelper_->aclConfig() == config && aclHelper_->intfConfig() == intfs &&
                    aclHelper_->aclStatus() == status && aclHelper_->inCounters() == in &&
                    aclHelper_->macOutCounters() == macOut && aclHelper_->ipOutCounters() == ipOut &&
                    aclHelper_->ip6OutCounters() == ip6Out;
  keepOrMake(aclHelperAttribute(), aclHelper_, same,
             [&] { return dataplaneAclHelperFactory(config, intfs, status, in, macOut, ipOut, ip6Out); });
  giveMirroringHelper();
  return aclHelper_;
}
Kelp::Ptr<DataplaneAclHelper> AclPlugin::aclHelperDel() { return take(aclHelperAttribute(), aclHelper_); }

const Kelp::Ptr<VeloDpAclStatusSm>& AclPlugin::dpAclStatusSmIs(
    const Kelp::Ptr<const Acl::Config>& config, const Kelp::Ptr<const Acl::IntfConfig>& intfs,
    const Kelp::Ptr<const Counters>& in, const Kelp::Ptr<const Counters>& macOut,
    const Kelp::Ptr<const Counters>& ipOut, const Kelp::Ptr<const Counters>& ip6Out,
    const Kelp::Ptr<Acl::StatusDp>& status, const Rix::SmControl& control) {
  const bool same = dpAclStatusSm_ && dpAclStatusSm_->aclConfig() == config &&
                    dpAclStatusSm_->aclIntfConfig() == intfs && dpAclStatusSm_->inCounters() == in &&
                    dpAclStatusSm_->macOutCounters() == macOut && dpAclStatusSm_->ipOutCounters() == ipOut &&
                    dpAclStatusSm_->ip6OutCounters() == ip6Out && dpAclStatusSm_->aclStatus() == status &&
                    dpAclStatusSm_->control() == control;
  return keepOrMake(dpAclStatusSmAttribute(), dpAclStatusSm_, same, [&] {
    return veloDpAclStatusSmFactory(config, intfs, in, macOut, ipOut, ip6Out, status, control);
  });
}
Kelp::Ptr<VeloDpAclStatusSm> AclPlugin::dpAclStatusSmDel() {
  return take(dpAclStatusSmAttribute(), dpAclStatusSm_);
}

void AclPlugin::giveMirroringHelper() {
  if (aclHelper_) aclHelper_->mirroringHelperIs(MirroringStepHelper::singleton());
}

const Kelp::Ptr<DataplaneAclInputStep>& AclPlugin::inputStepIs(const Kelp::Ptr<DataplaneAclHelper>& helper) {
  return keepOrMake(inputStepAttribute(), inputStep_, inputStep_ != nullptr,
                    [&] { return dataplaneAclInputStepFactory(helper); });
}
Kelp::Ptr<DataplaneAclInputStep> AclPlugin::inputStepDel() { return take(inputStepAttribute(), inputStep_); }

const Kelp::Ptr<DataplaneAclOutputStep>& AclPlugin::outputStepIs(
    const Kelp::Ptr<DataplaneAclHelper>& helper) {
  return keepOrMake(outputStepAttribute(), outputStep_, outputStep_ != nullptr,
                    [&] { return dataplaneAclOutputStepFactory(helper); });
}
Kelp::Ptr<DataplaneAclOutputStep> AclPlugin::outputStepDel() {
  return take(outputStepAttribute(), outputStep_);
}

const Kelp::Ptr<AclPlugin::Counters>& AclPlugin::countersIs(const Zeb::Attribute& attribute,
                                                            Kelp::Ptr<Counters>& member,
                                                            const Kelp::String& name,
                                                            CtrPool::FeatureId featureId) {
  return keepOrMake(attribute, member, member && member->name() == name && member->featureId() == featureId,
                    [&] { return MemSlab::make<Counters>(name, featureId); });
}

const Kelp::Ptr<AclPlugin::Counters>& AclPlugin::inCountersIs(const Kelp::String& name,
                                                              CtrPool::FeatureId featureId) {
  return countersIs(inCountersAttribute(), inCounters_, name, featureId);
}
const Kelp::Ptr<AclPlugin::Counters>& AclPlugin::macOutCountersIs(const Kelp::String& name,
                                                                  CtrPool::FeatureId featureId) {
  return countersIs(macOutCountersAttribute(), macOutCounters_, name, featureId);
}
const Kelp::Ptr<AclPlugin::Counters>& AclPlugin::ipOutCountersIs(const Kelp::String& name,
                                                                 CtrPool::FeatureId featureId) {
  return countersIs(ipOutCountersAttribute(), ipOutCounters_, name, featureId);
}
const Kelp::Ptr<AclPlugin::Counters>& AclPlugin::ip6OutCountersIs(const Kelp::String& name,
                                                                  CtrPool::FeatureId featureId) {
  return countersIs(ip6OutCountersAttribute(), ip6OutCounters_, name, featureId);
}
Kelp::Ptr<AclPlugin::Counters> AclPlugin::inCountersDel() { return take(inCountersAttribute(), inCounters_); }
Kelp::Ptr<AclPlugin::Counters> AclPlugin::macOutCountersDel() {
  return take(macOutCountersAttribute(), macOutCounters_);
}
Kelp::Ptr<AclPlugin::Counters> AclPlugin::ipOutCountersDel() {
  return take(ipOutCountersAttribute(), ipOutCounters_);
}
Kelp::Ptr<AclPlugin::Counters> AclPlugin::ip6OutCountersDel() {
  return take(ip6OutCountersAttribute(), ip6OutCounters_);
}

Kelp::Ptr<AclPlugin> aclPluginFactory(const Kelp::String& name) { return MemSlab::make<AclPlugin>(name); }
Kelp::Ptr<AclPlugin> AclPluginIs(const Kelp::String& name) { return aclPluginFactory(name); }

}  // namespace Velo::VeloAcl
