#pragma once

#include <agent/fleet/RolloutDriver.h>

#include <string>

namespace CLI {
class App;
}

namespace Agent {

/// What is said on a command line about a rollout.
class RolloutOptions {
 public:
  void add(CLI::App& command);
  bool given() const { return !steps_.empty(); }
  /// Whether it is left to others once it has begun.
  bool detached() const { return detach_; }
  /// What it is to be.
  Rollout rollout() const;

 private:
  std::string steps_, wait_ = "60s", stopIf_;
  uint64_t maxFailures_ = 0;
  bool detach_ = false;
};

/// Looks on until a rollout is over, and sees to it when nobody else does: its last document. When it goes
/// back that is over when all have told that they have the texts before, or have had the time for it. A store
/// that does not answer is waited for; one that does not allow it is not. `tells`: what becomes of it is
/// printed, a line for each change.
Maybe<nlohmann::ordered_json> followRollout(Etcd& etcd, const std::string& group, const std::string& who,
                                            bool tells);

/// Who calls this program, for people.
std::string callerName();

}  // namespace Agent
