#pragma once

#include <Acl/Model.h>
#include <Velo/SharedObjects.h>

#include <array>

namespace Velo::VeloAcl {

/// Offers the aggregated list configuration to the other plugins of the agent, under "AclConfig". It shares
/// ownership of the configuration with the plugin.
class VeloAclConfigSharedObject : public SharedObject {
  ZEB_ENTITY(VeloAclConfigSharedObject, SharedObject)

 public:
  static constexpr const char* registryName = "AclConfig";

  explicit VeloAclConfigSharedObject(const Kelp::Ptr<Acl::Config>& aclConfig)
      : SharedObject(registryName), aclConfig_(aclConfig) {}

  /// The configuration that the plugin aggregates into; null when the registry has no "AclConfig". Whatever
  /// is filed under that name is taken to be a VeloAclConfigSharedObject.
  static Kelp::Ptr<Acl::Config> getAclConfig(const Kelp::Ptr<SharedObjects>& sharedObjects);
  static constexpr std::array<Zeb::Operation, 1> zebOperations{{{"getAclConfig", "sharedObjects"}}};

  ZEB_HELD(Acl::Config, aclConfig)
};

Kelp::Ptr<VeloAclConfigSharedObject> veloAclConfigSharedObjectFactory(
    const Kelp::Ptr<Acl::Config>& aclConfig);
Kelp::Ptr<VeloAclConfigSharedObject> VeloAclConfigSharedObjectIs(const Kelp::Ptr<Acl::Config>& aclConfig);

}  // namespace Velo::VeloAcl
