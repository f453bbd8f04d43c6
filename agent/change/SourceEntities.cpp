#include <Nimnet/IntfId.h>
#include <agent/change/SourceEntities.h>

namespace Agent {

Kelp::Ptr<Acl::AclConfig> listIs(Acl::Config& lists, const Config::Model::ListKey& key) {
  const auto list = lists.configIs(key.first)->aclIs(key.second);
  if (!list->currCfg()) list->currCfgIs(MemSlab::make<Acl::AclSubConfig>());
  return list;
}

void listDel(Acl::Config& lists, const Config::Model::ListKey& key) {
  const auto ofType = lists.config(key.first);
  ofType->aclDel(key.second);
  if (ofType->acl().empty()) lists.configDel(key.first);
}

ListRules rulesOf(Acl::Config& lists, const Config::Model::ListKey& key) {
  return {key.first, lists.config(key.first)->acl(key.second)->currCfg()};
}

void bindingIs(Acl::IntfConfig& bindings, const Config::BindingKey& key, const std::string& list) {
  const Nimnet::IntfId intf(key.interface);
  if (!list.empty()) {
    bindings.configIs(key.type)->intfIs(key.direction)->intfIs(intf, list);
    return;
  }
  const auto directions = bindings.config(key.type);
  const auto ofDirection = directions->intf(key.direction);
  ofDirection->intfDel(intf);
  if (ofDirection->intf().empty()) directions->intfDel(key.direction);
  if (directions->intf().empty()) bindings.configDel(key.type);
}

}  // namespace Agent
