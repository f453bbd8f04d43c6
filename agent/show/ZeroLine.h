#pragma once

#include <agent/forward/Forwarder.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace Agent {

/// Matches by direction, when the last one was, in seconds since the epoch, and the octets of the packets.
struct MatchCount {
  uint64_t in = 0;
  uint64_t out = 0;
  std::optional<double> last;
  uint64_t bytesIn = 0;
  uint64_t bytesOut = 0;
};

/// Remembers how far the counters were when an operator cleared them. The counters themselves, and the
/// published status, are not changed: what is shown is how much they have counted since, above the line.
///
/// Rules are known by their ids. No id is used twice, so that a rule that is made again starts at zero. A
/// count below its line, as that of a port that was made again, is shown as it is.
class ZeroLine {
 public:
  using RuleKey = Velo::Counter::VeloDpAclCounterKey;
  struct Counted {
    uint64_t packets = 0;
    uint64_t bytes = 0;
  };

  /// Clears everything: rules, named counters and ports. `now`: seconds since the epoch.
  void clear(const Core& core, const Forwarder& forwarder, double now);
  /// Clears the rules of the lists with this name, of any type. Returns whether there is such a list.
  bool clear(const Core& core, const Kelp::String& list, double now);

  /// A counter has been deleted for good.
  void forget(const RuleKey& key) { rules_.erase(key); }

  // How much a counter has counted since it was cleared.
  Counted above(const RuleKey& key, const Velo::Counter::VeloDpAclCounter& counter) const;
  uint64_t above(const Velo::CounterName& name, uint64_t count) const;
  Port above(const Port& port) const;

  /// When everything was cleared last; nothing when it never was.
  std::optional<double> cleared() const { return cleared_; }
  /// When the lists with this name were cleared last, with everything else or alone.
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
