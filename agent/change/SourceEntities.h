#pragma once

#include <Acl/Model.h>
#include <agent/change/ListRules.h>
#include <agent/config/Model.h>

#include <string>

namespace Agent {

// Access to the entities of one source in the state tree, list by list and binding by binding. An entity that
// holds others is deleted with the last of them, so that a source has nothing that its model does not have.

/// A list of a source; made, without rules, when there is none.
Kelp::Ptr<Acl::AclConfig> listIs(Acl::Config& lists, const Config::Model::ListKey& key);
/// The list must exist.
void listDel(Acl::Config& lists, const Config::Model::ListKey& key);
/// The rules of a list, which must exist.
ListRules rulesOf(Acl::Config& lists, const Config::Model::ListKey& key);

/// Binds a list. With an empty name it takes the binding back, which must exist.
void bindingIs(Acl::IntfConfig& bindings, const Config::BindingKey& key, const std::string& list);

}  // namespace Agent
