#pragma once

#include <agent/change/Apply.h>
#include <agent/change/SourceChange.h>
#include <agent/change/Sources.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

// How the configuration gets from the first process to its workers, with the ids of its rules: as a whole,
// and then change by change. Texts come from this program itself; one that cannot be read is a mistake of it.

/// The text for a worker that begins: all sources, as the core has them in force.
std::string handoverText(Core& core, const Sources& sources);

/// What a worker begins with.
struct Handover {
  Sources sources;
  std::map<std::pair<std::string, Config::Model::ListKey>, std::vector<Kiv::UniqueId>> ids;  ///< by source

  /// For putInForce().
  std::vector<Kiv::UniqueId> idsOf(const std::string& source, const Config::List& list) const;
};
std::optional<Handover> readHandover(const std::string& text);

/// The text of one change.
std::string changeOrderText(const SourceChange& change);

/// The same change as a worker carries it out.
struct ChangeOrder {
  NewContent content;
  SourceChange writes;
};
/// To be called on a thread, while nobody writes `inForce`. Nothing, with the reason in `wrong`, when it is
/// not the change that the first process means: then they do not have the same configuration in force.
std::optional<ChangeOrder> readChangeOrder(const std::string& text, const Sources& inForce,
                                           std::string& wrong);

}  // namespace Agent
