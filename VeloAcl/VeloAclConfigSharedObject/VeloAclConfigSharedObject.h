#pragma once

#include <Acl/Model.h>
#include <Kelp/Ptr.h>
#include <Velo/SharedObjects.h>

#include <array>

namespace Velo::VeloAcl {

/// Shares the aggregated configuration of lists with the agent and its other plugins, under "AclConfig".
/// Plugin and shared object own the configuration together.
class VeloAclConfigSharedObject : public SharedObject {
  ZEB_ENTITY(VeloAclConfigSharedObject, SharedObject)

 public:
  static constexpr const char* registryName = "AclConfig";

  explicit VeloAclConfigSharedObject(const Kelp::Ptr<Acl::Config>& aclConfig)
      : SharedObject(registryName), aclConfig_(aclConfig) {}

  /// The configuration that the plugin aggregates into; null when the registry has no "AclConfig". An object
  /// under that name must be a VeloAclConfigSharedObject.
  static Kelp::Ptr<Acl::Config> getAclConfig(const Kelp::Ptr<SharedObjects>& sharedObjects);
  static constexpr std::array<Zeb::Operation, 1> zebOperations{{{"getAclConfig", "sharedObjects"}}};

  ZEB_HELD(Acl::Config, aclConfig)
};

Kelp::Ptr<VeloAclConfigSharedObject> veloAclConfigSharedObjectFactory(
    const Kelp::Ptr<Acl::Config>& aclConfig);
Kelp::Ptr<VeloAclConfigSharedObject> VeloAclConfigSharedObjectIs(const Kelp::Ptr<Acl::Config>& aclConfig);

}  // namespace Velo::VeloAcl
