#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace Agent {

/// How many frames a second an agent drops, in the minute before its last change and in the last one since:
/// so that whoever sees to a rollout can tell whether new texts make it worse. Pure: times are handed in, in
/// seconds of any clock.
class FleetDrops {
 public:
  /// What was, and what is, is looked at so far back.
  static constexpr double window = 60;

  /// So many frames have been dropped up to now; to be told every few seconds.
  void add(double now, uint64_t dropped);
  /// Content has come into force. What was dropped up to now was so by what was before. `tried` tells the
  /// rollouts whose new texts the agent tries (see FleetMirror): as long as it is the same, what was before
  /// is what was before the first of its changes, and not what a later one of other texts has found.
  void changed(double now, const std::string& version, const std::string& tried);

  /// A value for dropsKey(); empty: there has been no change yet. It stays as it is while nothing is dropped,
  /// and, when the agent tries nothing, from ten minutes behind a change on.
  std::string value(double now, const std::string& tried);

  struct Rates {
    std::optional<double> before, since;
  };
  /// What such a value says of content; nothing of other content, or when it is none.
  static Rates ratesIn(const std::string& value, const std::string& version);

 private:
  struct Sample {
    double time = 0;
    uint64_t dropped = 0;
  };

  std::deque<Sample> samples_;
  std::string version_;  // of the last change; empty: there was none
  std::string tried_;    // at that time
  Sample before_{};      // drops, and within how many seconds
  Sample begin_{};       // when it came into force
  std::string told_;
};

}  // namespace Agent
