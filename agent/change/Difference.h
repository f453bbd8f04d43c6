#pragma once

#include <agent/change/Uncovered.h>
#include <agent/config/Model.h>
#include <nlohmann/json.hpp>

#include <deque>
#include <memory>
#include <string>

namespace Agent {

/// What changes when one configuration replaces another.
struct Difference {
  std::deque<std::string> json;  ///< see difference()
  std::string summary;           ///< in a few words; empty when nothing changes

  /// The whole line, for whoever keeps it.
  std::shared_ptr<const std::string> line() const;
};

/// A summary for people, where there may be none.
inline std::string summaryText(const std::string& summary) { return summary.empty() ? "no change" : summary; }

/// What changes when one configuration replaces another, as one line of JSON in pieces. It has the members
/// `lists`, `bindings`, `portChannels`, `mirrorSessions`, `interfaces` (descriptions and the like) and
/// `objectGroups`, each with `added`, `removed` and `changed`. A changed list has the same members for its
/// rules. A rule is `changed` when another rule has its number now, which gets a new id. It keeps its id when
/// it is `renumbered`, which is when it says the same under another number, and when it is `respelled`, which
/// is when only its remark or spelling differs. Of a rule that comes or goes `remark` is its remark, of any
/// other one the remark before and after, if that differs; of a list `remarksBehind` the same of those behind
/// its last rule. The member `summary` says all of it in a few words:
///   "+1 list, 3 rules changed, 1 binding removed"
///
/// The member `comesIntoForce` has what other sources define that is in force from then on.
///
/// Only reads the models, so that any thread may call it while nobody writes them.
Difference difference(const Config::Model& before, const Config::Model& after,
                      const Uncovered& uncovered = {});

/// True when it says that nothing changes.
bool isNoDifference(const nlohmann::ordered_json& difference);

/// The difference for people: a line for each entry, with +, - or ~ in front; a long one begins with the
/// summary.
std::string differenceText(const nlohmann::ordered_json& difference, bool colour);

}  // namespace Agent
