#pragma once

#include <Kelp/Hash.h>
#include <fmt/format.h>

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace Kiv {

/// A 64-bit identifier of a rule or of a list's implicit rule. Zero is the empty id and all-ones marks "no id
/// yet"; neither is ever handed out. Generated ids have the top bit set, and ids hashed from text have it
/// clear, so that the two kinds never meet.
class UniqueId {
 public:
  constexpr UniqueId() = default;
  constexpr explicit UniqueId(uint64_t value) : value_(value) {}
  /// The id that a text stands for; equal texts give equal ids, the empty text the empty id. A text of the
  /// form that str() writes ("0x" and 1 to 16 hexadecimal digits) gives back the very id.
  explicit UniqueId(std::string_view text);

  /// A fresh id, never given out before in this process. Ids come in a repeatable order.
  static UniqueId generateUniqueId();
  static constexpr UniqueId unset() { return UniqueId(~uint64_t{0}); }

  constexpr uint64_t value() const { return value_; }
  constexpr bool empty() const { return value_ == 0; }
  std::string str() const { return fmt::format("0x{:016x}", value_); }
  constexpr uint32_t hash() const { return Kelp::keyHash(value_); }
  constexpr auto operator<=>(const UniqueId&) const = default;

 private:
  uint64_t value_ = 0;
};

}  // namespace Kiv

template <>
struct fmt::formatter<Kiv::UniqueId> : fmt::formatter<std::string_view> {
  template <class Context>
  auto format(Kiv::UniqueId id, Context& ctx) const {
    return fmt::formatter<std::string_view>::format(id.str(), ctx);
  }
};
