#pragma once

#include <agent/change/Warnings.h>
#include <agent/fleet/FleetSight.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Why and by whom texts were changed: what the audit key of a group has.
struct FleetAudit {
  std::string
      what;  ///< "apply", "rollback", "rollout"; what begins with "rollout " leaves the texts as they were
  std::string who, why{};
  double time = 0;  ///< seconds since the epoch
  std::string summary{};

  bool isOfTexts() const { return !what.starts_with("rollout "); }
  std::string json() const;
  static FleetAudit of(const std::string& json);
};

/// A change of the texts of a group, or of an agent's own ("agents/NAME"), that somebody wants to make.
struct FleetPlan {
  std::string group;
  std::map<std::string, std::string> texts;  ///< by name; all others of the group go
  bool packets = false;                      ///< it is to be found out which packets meet another verdict

  bool mayOpen = false;  ///< agents may open something by it: somebody has said so

  /// Whether there is anything to be carried out, if only to say that the texts may open something.
  bool isChange(const FleetSight& sight) const;
  /// What it does to keys: by key the new text; nothing: it goes. Keys that stay as they are, are left out.
  std::map<std::string, std::optional<std::string>> changes(const FleetSight& sight) const;
};

/// What a plan comes to, found out by what the store has: `group`, the `texts` that are `added`, `changed`
/// and `removed`, the `mistakes` of the texts, and `effects`: for each different one its `agents`, the
/// `difference` of what they have from the fleet, the `packets` of it if they are asked for, `openings` and
/// `refused`, why they would not take it, or null. What an agent has besides, of its command line and its
/// directory, is not known here.
nlohmann::ordered_json planDocument(const FleetPlan& plan, const FleetSight& sight, const Leave& leave);
std::string planText(const nlohmann::ordered_json& document, bool colour);

/// The first reason of all why the plan is not to be carried out; nothing if there is none.
std::optional<std::string> whyNoPlan(const nlohmann::ordered_json& document);

/// Adds to a transaction that nobody has changed texts of a group since the sight, nor added any, and that
/// these keys are there or not as they were.
void addUnchanged(EtcdTxn& txn, const FleetSight& sight, const std::string& group,
                  const std::vector<std::string>& keys);

/// Carries it out in one transaction, if nobody has changed the texts of the group meanwhile; the revision.
Maybe<int64_t> carryOut(Etcd& etcd, const FleetPlan& plan, const FleetSight& sight, int64_t auditedAt,
                        const FleetAudit& audit);

}  // namespace Agent
