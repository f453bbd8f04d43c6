#include <Acl/MergedConfig.h>

namespace Acl {

MergedConfig::~MergedConfig() = default;

Kelp::Ptr<MergedConfig> MergedConfig::of(const Velo::SharedObjects& registry) {
  return Kelp::ptrCast<MergedConfig>(registry.sharedObject(registryName));
}

void MergedConfig::clear() {
  listsIs(nullptr);
  bindingsIs(nullptr);
  listMergerIs(nullptr);
  bindingMergerIs(nullptr);
}

}  // namespace Acl
