#pragma once

#include <agent/fleet/FleetPlan.h>
#include <agent/fleet/FleetSight.h>
#include <agent/fleet/Rollout.h>

#include <cstdint>
#include <optional>
#include <string>

namespace Agent {

// A rollout and what the store has of it: pure, without a connection.

/// How the agents of a group stand.
RolloutView rolloutView(const FleetSight& sight, const std::string& group);

/// Why a rollout of such a plan cannot begin; nothing if it can.
std::optional<std::string> whyNoRollout(const FleetPlan& plan, const FleetSight& sight);
/// Its begin: the plan's texts are put beside those of the group, if nobody has changed these meanwhile.
/// `auditedAt`: the revision of the audit key.
EtcdTxn rolloutBegin(const FleetPlan& plan, const FleetSight& sight, const Rollout& begun, int64_t auditedAt);

/// What a rollout is to be next, if it still is what the sight has. When it is done its texts become those of
/// the group, if nobody else has changed these; for that the sight has to have all of them. Behind its end
/// there are none beside them. `who` makes the move, for the history of the group.
EtcdTxn rolloutMove(const FleetSight& sight, const std::string& group, const Rollout& after,
                    const std::string& who);

/// `group`, what the rollout is, how many `agents` there are and how those stand whose `turn` it is; of each
/// kind the first names.
nlohmann::ordered_json rolloutDocument(const FleetSight& sight, const std::string& group);
std::string rolloutText(const nlohmann::ordered_json& document, double now);
/// It in one line, without times.
std::string rolloutLine(const nlohmann::ordered_json& document);

}  // namespace Agent
