#pragma once

#include <Kelp/Duration.h>

#include <algorithm>

namespace Agent {

/// What the loop does when there is nothing to do.
enum class PollMode {
  busy,      ///< asks on and on, and takes the whole of a processor
  adaptive,  ///< asks on and on for a moment, then sleeps, longer and longer up to a millisecond
  sleep,     ///< sleeps a millisecond at once
};

/// How long the loop may sleep, where packets can come that no descriptor tells of: those wait until it
/// wakes. While every packet is told of, it may sleep until one is, in every mode but busy.
class IdlePause {
 public:
  static constexpr Kelp::Duration longest{0.001};
  static constexpr Kelp::Duration shortest{0.00005};
  /// For so long after the last packet the loop does not sleep.
  static constexpr Kelp::Duration spinning{0.0002};

  void modeIs(PollMode mode) { mode_ = mode; }
  /// Whether packets can come that no descriptor tells of.
  void silentIs(bool silent) { silent_ = silent; }

  /// The longest sleep now. `idle`: nothing has come since the time before.
  Kelp::Duration next(Kelp::Duration now, bool idle, Kelp::Duration unlimited) {
    if (!idle) since_ = now;
    if (!idle || mode_ == PollMode::busy) return Kelp::Duration();
    if (!silent_) return unlimited;
    if (mode_ == PollMode::sleep) return longest;
    const double quiet = (now - since_).seconds();
    if (quiet < spinning.seconds()) return Kelp::Duration();
    // A tenth of the time that it has been quiet: what comes then waits little longer than what it waited
    // for.
    return Kelp::Duration(std::clamp(quiet / 10, shortest.seconds(), longest.seconds()));
  }

 private:
  PollMode mode_ = PollMode::adaptive;
  bool silent_ = false;
  Kelp::Duration since_;
};

}  // namespace Agent
