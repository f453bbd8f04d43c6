#pragma once

#include <agent/change/Sources.h>
#include <agent/proof/PacketSets.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace Agent {

/// What is asked for: a list with fewer rules.
struct SimplificationQuestion {
  std::string list;
  std::optional<Acl::AclType> type{};  ///< nothing: there is one of this name only
  bool whole = false;                  ///< the text of all that its source has
  Proof::Limits limits{};
};

/// A list without the rules that it can do without: `list`, how many `rules` it had and `rulesLeft`, what is
/// `leftOut` and `joined`, each with a `sentence`, and the `text`. Nothing, and what is wrong, when there is
/// no such list or a limit was reached.
std::optional<nlohmann::ordered_json> listSimplification(const SimplificationQuestion& question,
                                                         const Layers& layers, std::string* wrong);

/// What such a document says of the list, for people; without its text.
std::string listSimplificationText(const nlohmann::ordered_json& document);

}  // namespace Agent
