#include <MemSlab/Slab.h>
#include <VeloAcl/LoadOrder.h>
#include <VeloAcl/VeloAclConfigSharedObject/VeloAclConfigSharedObject.h>
#include <Zeb/TypeModule.h>

namespace Velo::VeloAcl {

namespace {
[[gnu::init_priority(LoadOrder::sharedObjectTypes)]] const Zeb::TypeModule sharedObjectModule(
    "VeloAclConfigSharedObject", {Zeb::typeEntry(&veloAclConfigSharedObjectFactory)});
}

Kelp::Ptr<Acl::Config> VeloAclConfigSharedObject::getAclConfig(
    const Kelp::Ptr<SharedObjects>& sharedObjects) {
  const Kelp::Ptr<SharedObject> object = sharedObjects->sharedObject(registryName);
  return object ? static_cast<const VeloAclConfigSharedObject&>(*object).aclConfig() : nullptr;
}

Kelp::Ptr<VeloAclConfigSharedObject> veloAclConfigSharedObjectFactory(
    const Kelp::Ptr<Acl::Config>& aclConfig) {
  return MemSlab::make<VeloAclConfigSharedObject>(aclConfig);
}

Kelp::Ptr<VeloAclConfigSharedObject> VeloAclConfigSharedObjectIs(const Kelp::Ptr<Acl::Config>& aclConfig) {
  return veloAclConfigSharedObjectFactory(aclConfig);
}

}  // namespace Velo::VeloAcl
