#pragma once

#include <algorithm>

namespace Agent {

/// How long to wait before a store that did not answer is asked again: longer each time, and by chance, so
/// that the agents of a large fleet do not come back all at once.
class Backoff {
 public:
  static constexpr double first = 1, most = 30;  ///< seconds

  /// The next time to wait, in seconds; `chance` is from 0 to below 1.
  double next(double chance) {
    const double up = limit_;
    limit_ = std::min(most, limit_ * 2);
    return up * (0.5 + 0.5 * chance);
  }
  /// It has answered.
  void reset() { limit_ = first; }

 private:
  double limit_ = first;
};

}  // namespace Agent
