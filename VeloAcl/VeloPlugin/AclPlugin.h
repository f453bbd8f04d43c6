#pragma once

#include <Acl/AclConfigAggregatorSm.h>
#include <Acl/IntfConfigSm.h>
#include <Acl/MergedConfig.h>
#include <MemSlab/Slab.h>
#include <Velo/VeloPlugin.h>
#include <VeloAcl/VeloAclConfigSharedObject/VeloAclConfigSharedObject.h>
#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>
#include <VeloAcl/VeloPlugin/DataplaneAclSteps.h>

namespace Velo::VeloAcl {

/// The plugin's main object. It owns the aggregated configuration, the merged bindings, the counters and the
/// packet path, and connects them to the agent in three phases: mountsComplete takes the inputs and the
/// status from the state tree; setupPluginManager starts to merge the configuration, and shares it;
/// activeInit starts to filter and count packets, and announces what the dataplane can do.
///
/// A setter that builds an object keeps the present one if that was built over the same arguments. The plugin
/// is the parent of the entities that it makes, until they are removed or replaced. Objects that the plugin
/// has put into the agent's registries stay there when the plugin goes; the agent removes them.
class AclPlugin : public VeloPlugin {
  ZEB_ENTITY(AclPlugin, VeloPlugin)

 public:
  using Counters = Velo::Counter::VeloDpAclCounterColl;

  explicit AclPlugin(const Kelp::String& name);
  ~AclPlugin() override;

  void mountsComplete(const Kelp::Ptr<Hive::EntityManager>& entities) override;
  void setupPluginManager() override;
  void activeInit() override;

  // Taken from the state tree; null when a path is missing or holds another type.
  ZEB_VALUE(Kelp::Ptr<const Zeb::Dir>, aclInputDir)
  ZEB_VALUE(Kelp::Ptr<const Acl::Input::Config>, aclCliInput)
  ZEB_VALUE(Kelp::Ptr<const Zeb::Dir>, aclIntfInput)
  ZEB_VALUE(Kelp::Ptr<const Acl::IntfConfig>, aclIntfCliInput)
  ZEB_VALUE(Kelp::Ptr<Acl::StatusDp>, aclStatus)

  // Made by the constructor.
  ZEB_HELD(Acl::Config, aclConfig)
  ZEB_HELD(VeloAclConfigSharedObject, aclConfigSO)
  const Kelp::Ptr<Acl::Config>& aclConfigIs();
  Kelp::Ptr<Acl::Config> aclConfigDel();
  const Kelp::Ptr<VeloAclConfigSharedObject>& aclConfigSOIs(const Kelp::Ptr<Acl::Config>& config);
  Kelp::Ptr<VeloAclConfigSharedObject> aclConfigSODel();

  // Made by setupPluginManager.
  ZEB_HELD(Acl::AclConfigAggregatorSm, aclAggregatorSm)
  const Kelp::Ptr<Acl::AclConfigAggregatorSm>& aclAggregatorSmIs(
      const Kelp::Ptr<const Zeb::Dir>& inputDir, const Kelp::Ptr<const Acl::Input::Config>& cliInput,
      const Kelp::Ptr<Acl::Config>& config);
  Kelp::Ptr<Acl::AclConfigAggregatorSm> aclAggregatorSmDel();
  ZEB_HELD(Acl::IntfConfig, intfConfig)
  bool intfConfigIs(const Kelp::Ptr<Acl::IntfConfig>& intfs);
  ZEB_VALUE(Kelp::Ptr<AclAgent::IntfConfigSm>, intfConfigSm)
  ZEB_VALUE(Kelp::Ptr<Hive::DirMergeSm>, intfConfigDirMergeSm)

  // Made by activeInit.
  ZEB_HELD(DataplaneAclHelper, aclHelper)
  const Kelp::Ptr<DataplaneAclHelper>& aclHelperIs(
      const Kelp::Ptr<Acl::Config>& config, const Kelp::Ptr<Acl::IntfConfig>& intfs,
      const Kelp::Ptr<Acl::StatusDp>& status, const Kelp::Ptr<Counters>& in,
      const Kelp::Ptr<Counters>& macOut, const Kelp::Ptr<Counters>& ipOut, const Kelp::Ptr<Counters>& ip6Out);
  Kelp::Ptr<DataplaneAclHelper> aclHelperDel();
  ZEB_HELD(DataplaneAclInputStep, inputStep)
  const Kelp::Ptr<DataplaneAclInputStep>& inputStepIs(const Kelp::Ptr<DataplaneAclHelper>& helper);
  Kelp::Ptr<DataplaneAclInputStep> inputStepDel();
  ZEB_HELD(DataplaneAclOutputStep, outputStep)
  const Kelp::Ptr<DataplaneAclOutputStep>& outputStepIs(const Kelp::Ptr<DataplaneAclHelper>& helper);
  Kelp::Ptr<DataplaneAclOutputStep> outputStepDel();
  ZEB_HELD(Counters, inCounters)
  const Kelp::Ptr<Counters>& inCountersIs(const Kelp::String& name, CtrPool::FeatureId featureId);
  Kelp::Ptr<Counters> inCountersDel();
  ZEB_HELD(Counters, macOutCounters)
  const Kelp::Ptr<Counters>& macOutCountersIs(const Kelp::String& name, CtrPool::FeatureId featureId);
  Kelp::Ptr<Counters> macOutCountersDel();
  ZEB_HELD(Counters, ipOutCounters)
  const Kelp::Ptr<Counters>& ipOutCountersIs(const Kelp::String& name, CtrPool::FeatureId featureId);
  Kelp::Ptr<Counters> ipOutCountersDel();
  ZEB_HELD(Counters, ip6OutCounters)
  const Kelp::Ptr<Counters>& ip6OutCountersIs(const Kelp::String& name, CtrPool::FeatureId featureId);
  Kelp::Ptr<Counters> ip6OutCountersDel();
  ZEB_HELD(VeloDpAclStatusSm, dpAclStatusSm)
  const Kelp::Ptr<VeloDpAclStatusSm>& dpAclStatusSmIs(
      const Kelp::Ptr<const Acl::Config>& config, const Kelp::Ptr<const Acl::IntfConfig>& intfs,
      const Kelp::Ptr<const Counters>& in, const Kelp::Ptr<const Counters>& macOut,
      const Kelp::Ptr<const Counters>& ipOut, const Kelp::Ptr<const Counters>& ip6Out,
      const Kelp::Ptr<Acl::StatusDp>& status, const Rix::SmControl& control);
  Kelp::Ptr<VeloDpAclStatusSm> dpAclStatusSmDel();

 private:
  /// Sets an attribute and announces the change. If it holds an entity, the plugin becomes the parent of the
  /// new one, and the old one loses its parent. False when the value is the same.
  template <class T>
  bool hold(const Zeb::Attribute& attribute, Kelp::Ptr<T>& member, const Kelp::Ptr<T>& value);
  /// Keeps the present object, or replaces it by the one that `make` returns.
  template <class T, class Make>
  const Kelp::Ptr<T>& keepOrMake(const Zeb::Attribute& attribute, Kelp::Ptr<T>& member, bool keep,
                                 const Make& make);
  /// Clears an attribute and returns what it held.
  template <class T>
  Kelp::Ptr<T> take(const Zeb::Attribute& attribute, Kelp::Ptr<T>& member);
  const Kelp::Ptr<Counters>& countersIs(const Zeb::Attribute& attribute, Kelp::Ptr<Counters>& member,
                                        const Kelp::String& name, CtrPool::FeatureId featureId);
  void giveMirroringHelper();

  /// What the plugin shares besides `aclConfigSO`.
  const Kelp::Ptr<Acl::MergedConfig> merged_ = MemSlab::make<Acl::MergedConfig>();
};

Kelp::Ptr<AclPlugin> aclPluginFactory(const Kelp::String& name);
Kelp::Ptr<AclPlugin> AclPluginIs(const Kelp::String& name);

}  // namespace Velo::VeloAcl
