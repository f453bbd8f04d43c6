#include <VeloAcl/VeloPlugin/AclTrace.h>

namespace Velo::VeloAcl {

const Zeb::TraceHandle& aclTrace() {
  static const Zeb::TraceHandle handle("Velo::Acl", "VeloAcl/VeloPlugin/AclVeloPlugin");
  return handle;
}

const Kelp::String& aclFacility() {
  static const Kelp::String name(aclTrace().name());
  return name;
}

const Kelp::String& aclFastTraceFacility() {
  static const Kelp::String name("Acl");
  return name;
}

}  // namespace Velo::VeloAcl
