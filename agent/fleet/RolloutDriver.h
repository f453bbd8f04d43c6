#pragma once

#include <agent/fleet/RolloutStore.h>
#include <agent/fleet/RolloutWatch.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace Agent {

/// Sees to the rollout of a group, a look at a time, as long as nobody else does: whoever has the driver's
/// key, which is under a lease of a few seconds. Two at once do no harm, because each move is one transaction
/// that holds only if the rollout still is what was looked at; the key only saves them the work.
class RolloutDriver {
 public:
  static constexpr int leaseSeconds = 10;

  struct Look {
    std::string wrong{};                ///< why the store could not be asked, or did not take a move
    bool mayNot = false;                ///< because it does not let this one
    bool isOver = true;                 ///< there is nothing to be seen to
    bool drives = false;                ///< it is this one that does, or tries to
    nlohmann::ordered_json document{};  ///< rolloutDocument(); null: there is no rollout, or it is not known
  };

  /// `etcd` outlives it. `who` stands in the key.
  RolloutDriver(Etcd& etcd, std::string group, std::string who);
  ~RolloutDriver();
  RolloutDriver(const RolloutDriver&) = delete;
  RolloutDriver& operator=(const RolloutDriver&) = delete;

  /// Who looks at the whole fleet: only whoever has the key, because the look is large and there may be very
  /// many who try, or also others.
  enum class Looks : uint8_t { withKey, always };
  /// Tries to have the key, looks, and makes a move if one is due. `now` is in seconds of a clock that is
  /// never set.
  Look look(double now, Looks looks);
  /// Whether it has had the key at the last look.
  bool hasKey() const { return hasKey_; }
  /// How long to wait behind a look that took so many seconds: nine tenths of the time are left to others,
  /// but not so much that the lease ends.
  static double pauseBehind(double seconds) { return std::clamp(9 * seconds, 0.5, leaseSeconds * 0.3); }

 private:
  Look tryKey(double now);
  std::string keepLease(double now);
  std::string move(const FleetSight& sight, const Rollout& after);
  static Look failed(const std::string& why);

  Etcd& etcd_;
  const std::string group_, name_, who_;  // `who_` is the value of the key
  int64_t lease_ = 0;                     // 0: none
  double leaseKept_ = 0;
  bool hasKey_ = false;
  RolloutWatch watch_;
};

/// Begins a rollout; the revision.
Maybe<int64_t> beginRollout(Etcd& etcd, const FleetPlan& plan, const FleetSight& sight, int64_t auditedAt,
                            Rollout rollout);
/// What a rollout is to be; nothing if that cannot be.
using RolloutChange = std::function<std::optional<Rollout>(const Rollout& rollout, const RolloutView& view)>;
/// Pauses, resumes or aborts the one of a group. Otherwise why not.
std::string changeRollout(Etcd& etcd, const std::string& group, const RolloutChange& change,
                          const std::string& who);

}  // namespace Agent
