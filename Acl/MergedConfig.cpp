#include <Acl/MergedConfig.h>

namespace Acl {

MergedConfig::~MergedConfig() = default;

Kelp::Ptr<MergedConfig> MergedConfig::of(const Velo::SharedObjects& registry) {
  // Asked for while packets are judged, too, where nothing may allocate.
  static const Kelp::String name(registryName);
  return Kelp::ptrCast<MergedConfig>(registry.sharedObject(name));
}

void MergedConfig::clear() {
  listsIs(nullptr);
  bindingsIs(nullptr);
  listMergerIs(nullptr);
  bindingMergerIs(nullptr);
}

}  // namespace Acl
