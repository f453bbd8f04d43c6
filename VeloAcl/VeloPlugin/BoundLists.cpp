#include <VeloAcl/VeloPlugin/BoundLists.h>

namespace Velo::VeloAcl {

void BoundLists::Place::search(const BoundLists& all, const Nimnet::IntfId& wantedIntf,
                               Acl::AclDirection wantedDir, Acl::AclType wantedType) {
  *this = {};
  intf = wantedIntf;
  dir = wantedDir;
  type = wantedType;
  searched = true;
  bindingsVersion = all.bindings_->config().version();
  configVersion = all.config_->config().version();

  if (const auto* known = all.bindings_->config().find(type)) {
    ofType = known->get();
    typeVersion = ofType->intf().version();
    if (const auto* direction = ofType->intf().find(dir)) {
      ofDirection = direction->get();
      directionVersion = ofDirection->intf().version();
      if (const Kelp::String* name = ofDirection->intf().find(intf)) found.name = *name;
    }
  }
  found.bound = !found.name.empty();
  if (const auto* known = all.config_->config().find(type)) {
    lists = known->get();
    listsVersion = lists->acl().version();
    found.typeKnown = true;
    if (const auto* list = lists->acl().find(found.name)) found.list = list->get();
  }
}

}  // namespace Velo::VeloAcl
