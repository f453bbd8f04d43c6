#pragma once

#include <fmt/format.h>

#include <compare>

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
