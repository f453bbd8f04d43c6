#pragma once

#include <Acl/Model.h>
#include <agent/change/Sources.h>
#include <agent/core/Core.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

// Writes configuration into the state tree in one go. This is for an agent that does not forward packets yet,
// or never will. While packets flow, Configuration carries changes out.

/// Asked for the ids of the rules of every list that is added to a source ("cli", or "input/" and a name): in
/// the order of the rules, the empty id for a rule that it does not know. No ids at all: it knows none.
using RuleIdMemory =
    std::function<std::vector<Kiv::UniqueId>(const std::string& source, const Config::List& list)>;

/// Replaces all sources of the core by these. Returns why they cannot be in force together; then nothing has
/// changed.
std::optional<std::string> putInForce(Core& core, const Sources& sources, const RuleIdMemory& memory = {});

/// The same for the lists of one source.
using IdsOfNewList = std::function<std::vector<Kiv::UniqueId>(const Config::List& list)>;

/// Changes the lists of a source into those of a model, writing only the difference. A rule that stays the
/// same keeps its id, also when its number, remark or spelling changes (see Config::pairRules). Lists and
/// rules that are not in the model are deleted. A new list is complete before it is visible in the source;
/// `idsOf`, if it is given, is asked for the ids of its rules.
void applyLists(const Config::Model& model, const Kelp::Ptr<Acl::Input::Config>& source,
                const IdsOfNewList& idsOf = {});

/// The same for the bindings of a source.
void applyBindings(const Config::Model& model, const Kelp::Ptr<Acl::IntfConfig>& source);

}  // namespace Agent
