#pragma once

#include <Kelp/Duration.h>

#include <cstddef>
#include <vector>

namespace Agent {

/// Allows so many lines within any second. Allocates nothing after it is made.
class LineBudget {
 public:
  static constexpr Kelp::Duration window{1.0};

  explicit LineBudget(size_t linesASecond) : times_(linesASecond, Kelp::Duration(-window.seconds())) {}

  /// Whether a line may be written now; then it counts. No time is earlier than one before.
  bool take(Kelp::Duration now) {
    if (times_.empty() || now - times_[oldest_] < window) return false;
    times_[oldest_] = now;
    oldest_ = oldest_ + 1 == times_.size() ? 0 : oldest_ + 1;
    return true;
  }

 private:
  std::vector<Kelp::Duration> times_;  // of the last lines, in a circle
  size_t oldest_ = 0;
};

}  // namespace Agent
