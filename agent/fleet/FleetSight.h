#pragma once

#include <agent/change/Effective.h>
#include <agent/change/FleetContent.h>
#include <agent/fleet/Etcd.h>
#include <agent/fleet/FleetPlace.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <set>
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

    /// The revision of what it has in force, and the first mistake that it tells of.
    int64_t inForceAt() const;
    std::string mistake() const;
    /// Its ports; nothing when it does not tell of any.
    std::optional<PortNames> ports() const;
  };
  int64_t revision = 0;
  /// By key; those of agents and groups. Of texts that were not read there is the key alone.
  std::map<std::string, EtcdEntry> texts;
  std::set<std::string> tooMuch{};       ///< the places that have more text than is read
  std::map<std::string, Member> agents;  ///< by name; all that there are, or have been

  /// From the answer to fleetQuestion().
  static FleetSight of(EtcdResult& answer);

  /// What an agent is to have in force.
  FleetContent contentOf(const std::string& agent) const;
  /// The keys of the texts of a group, or of an agent's own ("agents/NAME").
  std::vector<std::string> keysOf(const std::string& group) const;
  /// That there is no agent of a name, and which ones have names like it.
  std::string whyNoAgent(const std::string& name) const;
  /// The agents that take the texts of such a group.
  std::vector<std::string> agentsOf(const std::string& group) const;
  /// The places of the texts of such agents.
  std::set<std::string> placesOf(const std::vector<std::string>& names) const;
  /// The groups that have a rollout, or have had one.
  std::vector<std::string> rolloutGroups() const;
};

/// What is asked for it first: all keys, and what agents say.
std::vector<EtcdRange> fleetQuestion();

/// All of it as it is in the store at one revision, but the texts. `further` is answered with it.
Maybe<FleetSight> fleetSight(Etcd& etcd, std::vector<EtcdRange> further = {},
                             std::vector<std::vector<EtcdEntry>>* found = nullptr);
/// Reads the texts of some places, as they were at the revision of the sight; why that was not possible. Of a
/// place that has more octets than `room` none are read: no agent takes it either.
std::string readTexts(Etcd& etcd, FleetSight& sight, const std::set<std::string>& places,
                      size_t room = size_t{72} << 20);

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
