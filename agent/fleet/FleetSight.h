#pragma once

#include <agent/change/Effective.h>
#include <agent/change/FleetContent.h>
#include <agent/fleet/Etcd.h>
#include <agent/fleet/FleetPlace.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Agent {

/// What the store has of a whole fleet, all as it was at one revision: for the operator's commands.
struct FleetSight {
  /// An agent, as it tells of itself.
  struct Member {
    std::vector<std::string> groups{};  ///< what counts more first
    nlohmann::ordered_json state{};     ///< null: it is gone
    std::string drops{};                ///< see FleetDrops

    /// Its ports; nothing when it does not tell of any.
    std::optional<PortNames> ports() const;
  };
  enum class Texts : uint8_t { keys, whole };

  int64_t revision = 0;
  std::map<std::string, EtcdEntry> texts;  ///< by key; those of agents and groups
  std::map<std::string, Member> agents;    ///< by name; all that there are, or have been

  /// From the answer to fleetQuestion().
  static FleetSight of(EtcdResult& answer);

  /// What an agent is to have in force.
  FleetContent contentOf(const std::string& agent) const;
  /// The keys of the texts of a group, or of an agent's own ("agents/NAME").
  std::vector<std::string> keysOf(const std::string& group) const;
  /// The agents that take the texts of such a group.
  std::vector<std::string> agentsOf(const std::string& group) const;
  /// The groups that have a rollout, or have had one.
  std::vector<std::string> rolloutGroups() const;
};

/// What is asked for it. Rollouts are asked for by rolloutsQuestions() besides, when there are keys only: so
/// many at a time as the store answers at once.
std::vector<EtcdRange> fleetQuestion(FleetSight::Texts texts);
std::vector<std::vector<EtcdRange>> rolloutsQuestions(const FleetSight& sight);

/// All of it as it is in the store at one revision. `further` is answered with it.
Maybe<FleetSight> fleetSight(Etcd& etcd, FleetSight::Texts texts, std::vector<EtcdRange> further = {},
                             std::vector<std::vector<EtcdEntry>>* found = nullptr);

/// A status in one word: "in force", "behind", "refused", "waiting" or "gone". `wanted` is the version that
/// the agent is to have.
std::string_view memberStatus(const FleetSight::Member& member, const std::string& wanted);

/// `revision` of the store, `agents` with what each has and is to have, and how many are in which `summary`.
nlohmann::ordered_json fleetStatusDocument(const FleetSight& sight);
std::string fleetStatusText(const nlohmann::ordered_json& document, bool colour, double now);

/// How agents differ: `same`, and for each different content that is in force its `agents`.
nlohmann::ordered_json fleetDiffDocument(const FleetSight& sight);
std::string fleetDiffText(const nlohmann::ordered_json& document);

}  // namespace Agent
