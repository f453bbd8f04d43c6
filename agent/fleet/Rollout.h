#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// How far the new texts of a group are to get before somebody looks again: to so many agents, or to a part
/// of all.
struct RolloutStep {
  uint64_t count = 0;  ///< agents, or percent
  bool isPercent = false;

  /// Of so many agents; of a part of some it is one at least.
  uint64_t of(uint64_t agents) const;
  /// "1" or "10%".
  std::string text() const;
  static std::optional<RolloutStep> from(const std::string& text);
};

/// New texts of a group on their way from agent to agent: the content of the rollout's key in the store. It
/// is whole in itself, so that whoever drives it may go away, and another one goes on. All of it is plain
/// values and pure functions: who reads and writes the key is in RolloutDriver.h.
///
/// Whose turn it is follows from the key alone: the agents have an order, by a digest over the rollout and
/// their name, and those up to one place in it take the new texts. The place only moves on, until the rollout
/// is done or goes back; then the new texts are nobody's.
struct Rollout {
  enum class Phase : uint8_t { running, paused, back, done };
  /// So many are remembered to have been gone. When more are, none that goes counts as failed.
  static constexpr size_t mostGone = 1000;

  std::string id;  ///< tells it from all others
  std::string who, why, summary{};
  double began = 0, changed = 0;     ///< seconds since the epoch, for people only
  std::vector<RolloutStep> steps{};  ///< the last one is all
  double wait = 60;                  ///< seconds that each step is watched for when all have it
  uint64_t maxFailures = 0;
  double dropsFactor = 0;  ///< so many times the drops of before are too many; 0: any number will do
  bool mayOpen = false;
  std::string from{};   ///< the version of the texts before it, by FleetVersion
  uint64_t agents = 0;  ///< of the group, when the step began

  Phase phase = Phase::running;
  size_t step = 0;     ///< that is under way
  std::string upTo{};  ///< the place in the order, 16 hexadecimal digits
  bool met = false;    ///< all whose turn it is have told that they have it
  /// Those whose turn it is, and who were gone when the step began.
  std::optional<std::vector<std::string>> gone{};
  std::string result{};  ///< why it goes back

  bool isActive() const { return phase == Phase::running || phase == Phase::paused; }
  /// An agent's place in the order.
  std::string placeOf(const std::string& agent) const;
  /// Whether an agent is to have the new texts.
  bool isTurn(const std::string& agent) const { return isActive() && placeOf(agent) <= upTo; }

  std::string json() const;
  /// Nothing when it is none.
  static std::optional<Rollout> of(const std::string& json);
};

const char* phaseName(Rollout::Phase phase);

/// The groups with a rollout that goes on and that nobody sees to, and how many agents they have.
using UndrivenRollouts = std::map<std::string, uint64_t>;

/// What is known of an agent whose turn it may be.
struct RolloutAgent {
  /// `hindered`: it cannot take the new texts because of other texts that are not of the rollout.
  enum class Stands : uint8_t { behind, inForce, refused, hindered };
  bool isThere = false;
  Stands stands = Stands::behind;  ///< with what it is to have now
  /// Frames a second that it dropped before and since it has that; nothing: not known.
  std::optional<double> before{}, since{};
  std::string wanted{};  ///< the version of what it is to have
  /// So many seconds it has not told of that, as far as whoever looks has seen.
  double behindFor = 0;
};

struct RolloutView {
  std::map<std::string, RolloutAgent> agents;  ///< of the group, gone ones as well
  std::string texts;                           ///< the version of the group's own texts now
};

// What becomes of a rollout. Each is one transaction, which holds only if nobody has written the key
// meanwhile.

/// Its first step.
Rollout begunRollout(Rollout rollout, const RolloutView& view);
/// What it is to be next, if that is something else, when it has been what it is for so many seconds.
std::optional<Rollout> nextRollout(const Rollout& rollout, const RolloutView& view, double seconds);
// What people ask for; nothing when it cannot be.
std::optional<Rollout> pausedRollout(Rollout rollout);
std::optional<Rollout> resumedRollout(Rollout rollout, const RolloutView& view);
std::optional<Rollout> abortedRollout(Rollout rollout, const std::string& why);

/// Reads "1,10%,50%"; all agents are the last step, said or not. Otherwise nothing, and why.
std::optional<std::vector<RolloutStep>> readSteps(const std::string& text, std::string* wrong);
/// Reads "drops rate > 2x".
std::optional<double> readStopIf(const std::string& text);

}  // namespace Agent
