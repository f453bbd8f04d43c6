#pragma once

#include <Acl/Model.h>
#include <agent/change/Sources.h>
#include <agent/core/Core.h>

#include <functional>
#include <optional>
#include <string>

namespace Agent {

// Puts what sources say into the state tree in one go: for an agent that carries no packets yet, or none at
// all. While packets flow a change takes the way of Configuration.

/// Asked for the id of every rule that comes into a source ("cli", or "input/" and a name); an empty id says
/// that the rule is a new one.
using RuleIdMemory = std::function<Kiv::UniqueId(const std::string& source, const Config::List& list,
                                                 const Config::Rule& rule)>;

/// Has the core's sources be these and no others. Returns why they cannot be in force together; then nothing
/// has changed.
std::optional<std::string> putInForce(Core& core, const Sources& sources, const RuleIdMemory& memory = {});

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
