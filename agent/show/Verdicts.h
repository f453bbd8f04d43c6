#pragma once

#include <agent/forward/Forwarder.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

// What became of a frame, as plain values, in JSON and in a sentence: for the verdicts of a replay, for
// explanations, and for frames that are looked at as they are judged.

/// A list that judged a frame, and the rule that decided.
struct Hit {
  Acl::AclDirection direction;
  Nimnet::IntfId intf;
  Acl::AclType type;
  Kelp::String list;
  uint32_t sequence;  ///< 0: the list's implicit drop
  Acl::Action action;
  bool defined = true;  ///< otherwise the list is bound only, and lets everything pass
};

/// A port that a frame was to leave by.
struct Egress {
  Nimnet::IntfId port;
  bool passed = true;
  Kelp::String reason{};         ///< of a drop
  std::optional<uint32_t> by{};  ///< the place among the hits of what dropped it there, if a list did
};

/// What became of a frame.
struct Fate {
  Kelp::String port{};  ///< where it came in
  bool passed = true;   ///< of a frame that was to leave by several ports: it left by one of them
  /// Of a drop: where, and the reason under which it was counted; of several ports that of the first.
  Acl::AclDirection direction = Acl::AclDirection::in;
  Kelp::String reason{};
  std::vector<Hit> hits{};  ///< in the order in which the lists were asked
  std::vector<Egress> egress{};
  bool addressed = false;                ///< its MAC addresses say where it leaves, as on a bridge
  std::vector<Kelp::String> mirrored{};  ///< the sessions that a copy went to, each once

  void mirroredAdd(const Kelp::String& session);
  /// The frame has come to a port that it was to leave by, and all lists there have been asked. `dropReason`:
  /// if it has not left.
  void egressAdd(const Nimnet::IntfId& port, bool left, const Kelp::String& dropReason);
  /// All has been done with the frame. `dropReason`: of a drop before it came to a port.
  void verdictIs(const Verdict& verdict, const Kelp::String& dropReason);
  /// Makes it the fate of nothing, but keeps the memory.
  void clear();

 private:
  size_t hitsBefore_ = 0;  // how many lists were asked up to the last egress port
};

/// Whether MAC addresses were asked for on the way of a frame: by a list, or for the port to leave by.
bool decidedByAddresses(const Fate& fate);

/// The reason that is told of a frame when the step that dropped it has counted none.
std::string uncountedReason(const Velo::PipelineStep& droppedBy);

/// Members `direction`, `interface`, `type`, `list`, `rule` ("implicit", a number, or null: the list is not
/// defined) and `action`.
nlohmann::ordered_json hitWords(const Hit& hit);
/// Members `port`, `verdict` and, of a drop, `reason` and `by`.
nlohmann::ordered_json egressWords(const Egress& egress);
/// The names of the sessions.
nlohmann::ordered_json mirroredWords(const Fate& fate);

/// Adds to a document `verdict` and, of a frame that was dropped, `direction` and `reason`.
void addVerdict(nlohmann::ordered_json& document, const Fate& fate);
/// Adds `hits` and `mirrored`.
void addHits(nlohmann::ordered_json& document, const Fate& fate);

/// What became of a frame, by which rules, in a sentence without a full stop:
///   "dropped on its way in by rule 10 of FROM-ALICE on eth1"
std::string sentenceOf(const Fate& fate);

}  // namespace Agent
