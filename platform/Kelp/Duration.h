#pragma once

#include <fmt/format.h>

#include <cmath>
#include <compare>
#include <limits>

namespace Kelp {

/// A time in seconds as a real number; as a point in time, seconds since the epoch on the scale of
/// Zeb::System::currentTime().
class Duration {
 public:
  constexpr Duration() = default;
  constexpr explicit Duration(double seconds) : seconds_(seconds) {}

  constexpr double seconds() const { return seconds_; }
  constexpr auto operator<=>(const Duration&) const = default;
  constexpr Duration operator+(Duration other) const { return Duration(seconds_ + other.seconds_); }
  /// The time that is `by` later. For every `by` above zero the result is really later: when the sum is
  /// rounded to this same time, it is the next real number. So code that waits for a time cannot wait for the
  /// present one.
  Duration later(Duration by) const {
    const Duration sum = *this + by;
    if (sum > *this || !(by > Duration())) return sum;
    return Duration(std::nextafter(seconds_, std::numeric_limits<double>::infinity()));
  }
  constexpr Duration operator-(Duration other) const { return Duration(seconds_ - other.seconds_); }

 private:
  double seconds_ = 0;
};

}  // namespace Kelp

template <>
struct fmt::formatter<Kelp::Duration> : fmt::formatter<double> {
  template <class Context>
  auto format(Kelp::Duration d, Context& ctx) const {
    return fmt::formatter<double>::format(d.seconds(), ctx);
  }
};
