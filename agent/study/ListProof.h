#pragma once

#include <agent/change/Sources.h>
#include <agent/proof/Sayings.h>
#include <agent/warnings/Warning.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// What is probably not meant about the lists in force, as all packets show it.
struct ListProof {
  Warnings warnings;  ///< each with an example, and with its place where the notices have those of all rules
  std::vector<std::string> unchecked;  ///< what was not looked at because of a limit
};
/// The limits are for all lists together; the smallest are looked at first. With `source`, only lists that it
/// has in force.
ListProof proveLists(const Layers& layers, const Proof::Limits& limits,
                     const std::optional<std::string>& source = std::nullopt,
                     Proof::Say say = Proof::Say::oddities);

/// The same beside the rules: into a document of `velo show access-lists`, whose lists these layers have in
/// force. Its rules and lists get a member `findings`, each with `code`, `text` and, if there is one,
/// `example`; the document gets `unchecked`. Where a rule reads otherwise in the layers, nothing is said.
void addFindings(nlohmann::ordered_json& document, const Layers& layers, const Proof::Limits& limits,
                 Proof::Say say = Proof::Say::oddities);

}  // namespace Agent
