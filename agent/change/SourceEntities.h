#pragma once

#include <Acl/Model.h>
#include <agent/change/ListRules.h>
#include <agent/config/Model.h>

#include <string>

namespace Agent {

// The entities of one source in the state tree, list by list and binding by binding. What holds them goes
// with the last of them, so that a source says as much as its model.

/// A list of a source, made without rules when there is none.
Kelp::Ptr<Acl::AclConfig> listIs(Acl::Config& lists, const Config::Model::ListKey& key);
/// There is one.
void listDel(Acl::Config& lists, const Config::Model::ListKey& key);
/// The rules of a list that there is.
ListRules rulesOf(Acl::Config& lists, const Config::Model::ListKey& key);

/// `list` empty: the binding, of which there is one, is taken back.
void bindingIs(Acl::IntfConfig& bindings, const Config::BindingKey& key, const std::string& list);

}  // namespace Agent
