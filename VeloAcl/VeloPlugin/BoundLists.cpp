#include <VeloAcl/VeloPlugin/BoundLists.h>

namespace Velo::VeloAcl {

void BoundListSearch::search(const Acl::IntfConfig& bindings, const Acl::Config& config,
                             const Nimnet::IntfId& intf, Acl::AclDirection dir, Acl::AclType type) {
  *this = {};
  intf_ = intf;
  dir_ = dir;
  type_ = type;
  searched_ = true;
  bindingsChanges_ = bindings.config().changes();
  configChanges_ = config.config().changes();

  if (const auto* known = bindings.config().find(type)) {
    ofType_ = known->get();
    typeChanges_ = ofType_->intf().changes();
    if (const auto* direction = ofType_->intf().find(dir)) {
      ofDirection_ = direction->get();
      directionChanges_ = ofDirection_->intf().changes();
      if (const Kelp::String* name = ofDirection_->intf().find(intf)) found_.name = *name;
    }
  }
  found_.bound = !found_.name.empty();
  if (const auto* known = config.config().find(type)) {
    lists_ = known->get();
    listsChanges_ = lists_->acl().changes();
    found_.typeKnown = true;
    if (const auto* list = lists_->acl().find(found_.name)) found_.list = list->get();
  }
}

}  // namespace Velo::VeloAcl
