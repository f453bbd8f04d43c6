#pragma once

#include <agent/forward/Forwarder.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace Agent {

/// Matches by direction, and the time of the last one in seconds since the epoch.
struct MatchCount {
  uint64_t in = 0;
  uint64_t out = 0;
  std::optional<double> last;
};

/// The operator's zero line: where the counters stood when they were cleared. The counters themselves go on,
/// and with them the published status; what is shown lies above the line.
///
/// A rule is known by its id, which is never given out twice, so that a rule made again starts at its own
/// zero. A count that has fallen below its line (a port that was made again) is shown as it is.
class ZeroLine {
 public:
  using RuleKey = Velo::Counter::VeloDpAclCounterKey;
  struct Counted {
    uint64_t packets = 0;
    uint64_t bytes = 0;
  };

  /// Draws the line under everything: rules, named counters and ports. `now`: seconds since the epoch.
  void clear(const Core& core, const Forwarder& forwarder, double now);
  /// Draws it under the rules of the lists of a name, of any kind. Returns whether there is such a list.
  bool clear(const Core& core, const Kelp::String& list, double now);

  /// The counter is gone for good.
  void forget(const RuleKey& key) { rules_.erase(key); }

  Counted above(const RuleKey& key, const Velo::Counter::VeloDpAclCounter& counter) const;
  uint64_t above(const Velo::CounterName& name, uint64_t count) const;
  Port above(const Port& port) const;

  /// When everything was cleared, and a list of this name, last; nothing when never.
  std::optional<double> cleared() const { return cleared_; }
  std::optional<double> cleared(const Kelp::String& list) const;

 private:
  void drawRules(const Core& core, const Kelp::String* list);

  std::map<RuleKey, Counted> rules_;
  std::map<Velo::CounterName, uint64_t> named_;
  std::map<Nimnet::IntfId, Port> ports_;
  std::optional<double> cleared_;
  std::map<Kelp::String, double> listCleared_;
};

}  // namespace Agent
