#include <VeloAcl/VeloPlugin/AclTrace.h>

namespace Velo::VeloAcl {

const Kelp::String& aclFacility() {
  static const Kelp::String name(aclTrace().name());
  return name;
}

const Kelp::String& aclFastTraceFacility() {
  static const Kelp::String name("Acl");
  return name;
}

}  // namespace Velo::VeloAcl
