#pragma once

#include <cmath>
#include <cstdint>
#include <iterator>
#include <random>

namespace Bench {

/// Random numbers that are the same everywhere for one seed.
class Dice {
 public:
  explicit Dice(uint64_t seed) : random_(seed) {}
  /// 0 to bound - 1.
  uint64_t below(uint64_t bound) { return random_() % bound; }
  bool once(uint64_t in) { return below(in) == 0; }
  uint64_t between(uint64_t low, uint64_t high) { return low + below(high - low + 1); }
  /// 0 to 1.
  double share() { return static_cast<double>(random_() >> 11) * 0x1p-53; }
  template <class Values>
  const auto& of(const Values& values) {
    return values[below(std::size(values))];
  }
  /// A place of `count` whose weight falls with its number, as popularity does: place i has about 1 / (i +
  /// 1).
  size_t popular(size_t count) {
    const double u = share();
    const auto at = static_cast<size_t>(std::pow(static_cast<double>(count) + 1, u)) - 1;
    return at < count ? at : count - 1;
  }

 private:
  std::mt19937_64 random_;
};

}  // namespace Bench
