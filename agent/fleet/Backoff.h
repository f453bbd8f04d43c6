#pragma once

#include <algorithm>
#include <utility>

namespace Agent {

/// How long to wait before a store that did not answer is asked again: longer each time, and by chance, so
/// that the agents of a large fleet do not come back all at once.
class Backoff {
 public:
  static constexpr double first = 1, most = 30;  ///< seconds
  /// A connection that lasted less says nothing good.
  static constexpr double least = 5;
  /// Behind a good connection the first pause is by chance up to so much: all agents have lost it at the same
  /// moment.
  static constexpr double spread = 10;

  /// The next time to wait, in seconds; `chance` is from 0 to below 1.
  double next(double chance) {
    if (spread_ > 0) {
      limit_ = std::max(first, spread_);
      return std::exchange(spread_, 0) * chance;
    }
    const double up = limit_;
    limit_ = std::min(most, limit_ * 2);
    return up * (0.5 + 0.5 * chance);
  }
  /// There was a connection for so many seconds. One that was shorter than the next pause leaves that as it
  /// is: otherwise a store that ends each connection at once would be asked without a pause for ever.
  void connected(double seconds) {
    if (seconds < std::max(least, limit_)) return;
    spread_ = std::min(spread, seconds / 6);
  }

 private:
  double limit_ = first;
  double spread_ = 0;
};

}  // namespace Agent
