#pragma once

#include <Acl/AclConfigAggregatorSm.h>
#include <Acl/IntfConfigSm.h>
#include <Velo/SharedObjects.h>

namespace Acl {

/// What a plugin has merged out of the sources of configuration: the lists and bindings in force, and the two
/// mergers, which know the sources of each list and of each binding. A plugin shares it under "AclMerged".
///
/// Made and filled by the plugin, which clears it before it goes, so that the mergers end with the plugin
/// however long somebody holds this object. Everything is null until it is filled, and when it is cleared.
///
/// Programs read this one: what the plugin itself is, and the object that shares its lists alone, are types
/// of the plugin, which nothing outside of it may name.
class MergedConfig : public Velo::SharedObject {
  ZEB_ENTITY(MergedConfig, Velo::SharedObject)

 public:
  static constexpr const char* registryName = "AclMerged";

  MergedConfig() : SharedObject(registryName) {}
  ~MergedConfig() override;

  /// The one that a registry has; null when it has none.
  static Kelp::Ptr<MergedConfig> of(const Velo::SharedObjects& registry);

  ZEB_VALUE(Kelp::Ptr<Config>, lists)
  ZEB_VALUE(Kelp::Ptr<const IntfConfig>, bindings)
  ZEB_VALUE(Kelp::Ptr<AclConfigAggregatorSm>, listMerger)
  ZEB_VALUE(Kelp::Ptr<AclAgent::IntfConfigSm>, bindingMerger)
  void clear();
};

}  // namespace Acl
