#pragma once

#include <Acl/Model.h>
#include <agent/config/Model.h>

#include <functional>

namespace Agent {

/// The id of a rule that comes into a list, other than any that another rule has or had.
using IdOfNewRule = std::function<Kiv::UniqueId(const Config::List& list, const Config::Rule& rule)>;
inline Kiv::UniqueId freshId(const Config::List&, const Config::Rule&) {
  return Kiv::UniqueId::generateUniqueId();
}

/// Makes a source of lists say what a model says, as a difference: a rule that stays the same rule keeps its
/// id (a change of remark or spelling is written under it), lists and rules that are not in the model go, and
/// what did not change is not written. A new list is complete before it is shown.
void applyLists(const Config::Model& model, const Kelp::Ptr<Acl::Input::Config>& source,
                const IdOfNewRule& idOfNewRule = freshId);

/// The same for a source of bindings.
void applyBindings(const Config::Model& model, const Kelp::Ptr<Acl::IntfConfig>& source);

}  // namespace Agent
