#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Agent {

// The layout of the store: a contract with everybody who reads or writes it; docs/fleet.md has it, too.
//
//   /velo/v1/config/GROUP/NAME          a text for all agents of a group
//   /velo/v1/config/agents/AGENT/NAME   a text for one agent
//   /velo/v1/config/GROUP/rollout/state          how far new texts of a group have got (Rollout.h)
//   /velo/v1/config/GROUP/rollout/texts/NAME     those texts, while they are on their way
//   /velo/v1/config/GROUP/rollout/driver         who sees to it; goes with whoever does
//   /velo/v1/config/GROUP/openings/allowed       which texts may open something, by their digest
//   /velo/v1/config/GROUP/openings/back          which may, in place of texts of a rollout
//   /velo/v1/config/agents/AGENT/question/ID     what somebody asks an agent; goes with whoever does
//   /velo/v1/agents/AGENT/state         what is true of an agent; goes with it
//   /velo/v1/agents/AGENT/answer/ID     its answer, as long as the question is there
//   /velo/v1/agents/AGENT/drops         what it dropped before and since its last change; goes with it
//   /velo/v1/known/AGENT                that there is such an agent; stays when it goes
//   /velo/v1/counters/AGENT/TYPE/LIST   what the rules of a list have counted; goes with it
//   /velo/v1/counters/AGENT/left-out    how many lists it does not tell of; goes with it
//   /velo/v1/audit/GROUP                who has changed the texts of a group last, and why
//
// A text counts more than those behind it in this order: the agent's own, then those of its groups in the
// order in which the agent names them, and of one place by NAME.

inline constexpr std::string_view fleetRoot = "/velo/v1/";

std::string groupPrefix(std::string_view group);
std::string ownPrefix(std::string_view agent);
/// Below them is what agents say of themselves: "NAME/state", "NAME", and "NAME/TYPE/LIST".
std::string agentsPrefix();
std::string knownPrefix();
std::string countersPrefix();
std::string stateKey(std::string_view agent);
std::string dropsKey(std::string_view agent);
std::string answerKey(std::string_view agent, std::string_view id);
std::string questionPrefix(std::string_view agent);
/// That there is such an agent; stays when it goes.
std::string knownKey(std::string_view agent);
std::string counterKey(std::string_view agent, std::string_view type, std::string_view list);
/// Of an agent that has more lists than it tells of: how many it leaves out.
std::string leftOutKey(std::string_view agent);
std::string auditKey(std::string_view group);
/// Where the texts are whose changes an audit key is for: a group's, or, of "agents/NAME", an agent's own.
std::string textsPrefix(std::string_view group);

// Below such a place, a prefix that ends in a slash.
std::string rolloutKey(std::string_view place);
std::string rolloutTextsPrefix(std::string_view place);
std::string driverKey(std::string_view place);
std::string mayOpenKey(std::string_view place);
std::string mayOpenBackKey(std::string_view place);
/// The ranges of keys where the texts of a place are, and nothing else of the layout: of each its first key
/// and the first one behind it.
std::vector<std::pair<std::string, std::string>> textRanges(const std::string& place);
/// Whether a key below a place is one of the layout; `rest` is what stands behind the place.
bool isOfPlace(std::string_view rest);

/// The first key behind all that begin so.
std::string prefixEnd(std::string prefix);
/// A part of a key that nobody else has made.
std::string keyOfChance();

/// What comes behind a prefix and up to the next slash; empty if there is none. "agents" of a state's key.
std::string_view nameIn(std::string_view key, std::string_view prefix);

/// Why this cannot be the name of an agent or of a text, or of a group; nothing if it can.
std::optional<std::string> whyNoFleetName(std::string_view name);
std::optional<std::string> whyNoGroup(std::string_view name);

/// Tells content from other content: its keys in their order, each with the revision of its last change. So
/// whoever sees the store can tell what an agent has in force.
class FleetVersion {
 public:
  void add(std::string_view key, int64_t revision);
  /// Tells by the text instead, whenever it was written.
  void add(std::string_view name, std::string_view text);
  /// 16 hexadecimal digits.
  std::string str() const;

 private:
  std::string all_;
};

}  // namespace Agent
