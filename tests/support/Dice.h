#pragma once

#include <cstdint>
#include <iterator>
#include <optional>
#include <random>
#include <span>

namespace TestSupport {

/// Choices for whoever makes up rules, packets and the like: at random from a seed, the same everywhere; or
/// as the octets of an input say, so that who changes the octets changes the choices, with zeros behind its
/// end. The first of several alternatives should therefore be the simplest one.
class Dice {
 public:
  explicit Dice(uint64_t seed) : random_(std::in_place, seed) {}
  /// The octets outlive this object.
  explicit Dice(std::span<const uint8_t> octets) : octets_(octets) {}

  /// False when the octets are used up; at random there are always more.
  bool more() const { return random_ || !octets_.empty(); }
  uint64_t any() { return random_ ? (*random_)() : take(~uint64_t{0}); }
  /// 0 to bound - 1.
  uint64_t below(uint64_t bound) { return (random_ ? (*random_)() : take(bound - 1)) % bound; }
  bool once(uint64_t in) { return below(in) == in - 1; }
  template <class Values>
  const auto& of(const Values& values) {
    return values[below(std::size(values))];
  }

 private:
  /// Of as many octets as numbers up to `greatest` need.
  uint64_t take(uint64_t greatest) {
    uint64_t value = 0;
    for (; greatest != 0; greatest >>= 8) {
      value = value << 8 | (octets_.empty() ? 0 : octets_.front());
      if (!octets_.empty()) octets_ = octets_.subspan(1);
    }
    return value;
  }

  std::optional<std::mt19937_64> random_;
  std::span<const uint8_t> octets_;
};

}  // namespace TestSupport
