#pragma once

#include <Kelp/Duration.h>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Agent {

/// Allows so many lines within any second, and counts those that it did not allow. Allocates nothing after it
/// is made.
class LineBudget {
 public:
  static constexpr Kelp::Duration window{1.0};

  explicit LineBudget(size_t linesASecond) : times_(linesASecond, Kelp::Duration(-window.seconds())) {}

  /// Whether a line may be written now; then it counts. No time is earlier than one before.
  bool take(Kelp::Duration now) {
    if (times_.empty() || now - times_[oldest_] < window) {
      if (leftOut_++ == 0) leftOutSince_ = now;
      return false;
    }
    times_[oldest_] = now;
    oldest_ = oldest_ + 1 == times_.size() ? 0 : oldest_ + 1;
    return true;
  }

  uint64_t leftOut() const { return leftOut_; }
  /// When the first line was left out since takeLeftOut().
  Kelp::Duration leftOutSince() const { return leftOutSince_; }
  uint64_t takeLeftOut() { return std::exchange(leftOut_, 0); }

 private:
  std::vector<Kelp::Duration> times_;  // of the last lines, in a circle
  size_t oldest_ = 0;
  uint64_t leftOut_ = 0;
  Kelp::Duration leftOutSince_;
};

}  // namespace Agent
