#pragma once

#include <Acl/Model.h>
#include <agent/change/Sources.h>
#include <agent/core/Core.h>

#include <functional>
#include <optional>
#include <string>

namespace Agent {

// Writes configuration into the state tree in one go. This is for an agent that does not forward packets yet,
// or never will. While packets flow, Configuration carries changes out.

/// Asked for the id of every rule that is added to a source ("cli", or "input/" and a name). It returns the
/// empty id for a rule that it does not know.
using RuleIdMemory = std::function<Kiv::UniqueId(const std::string& source, const Config::List& list,
                                                 const Config::Rule& rule)>;

/// Replaces all sources of the core by these. Returns why they cannot be in force together; then nothing has
/// changed.
std::optional<std::string> putInForce(Core& core, const Sources& sources, const RuleIdMemory& memory = {});

/// Gives the id for a rule that is added to a list: one that no other rule has or ever had.
using IdOfNewRule = std::function<Kiv::UniqueId(const Config::List& list, const Config::Rule& rule)>;
inline Kiv::UniqueId freshId(const Config::List&, const Config::Rule&) {
  return Kiv::UniqueId::generateUniqueId();
}

/// Changes the lists of a source into those of a model, writing only the difference. A rule that stays the
/// same keeps its id, also when its remark or spelling changes. Lists and rules that are not in the model are
/// deleted. A new list is complete before it is visible in the source.
void applyLists(const Config::Model& model, const Kelp::Ptr<Acl::Input::Config>& source,
                const IdOfNewRule& idOfNewRule = freshId);

/// The same for the bindings of a source.
void applyBindings(const Config::Model& model, const Kelp::Ptr<Acl::IntfConfig>& source);

}  // namespace Agent
