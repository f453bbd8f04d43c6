#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <string_view>

namespace Acl {

/// The kind of an access list. The numbers are part of counter and status keys.
enum class AclType : uint8_t { ip = 0, ipv6 = 1, mac = 2 };
inline constexpr AclType aclTypes[] = {AclType::ip, AclType::ipv6, AclType::mac};

/// The direction of a binding: in is judged on receipt, out before sending.
enum class AclDirection : uint8_t { in = 0, out = 1 };

/// What a rule does with a packet that it matches.
enum class Action : uint8_t { permit = 0, deny = 1 };

/// The kinds of rule that a list has without their being configured.
enum class ImplicitRuleType : uint8_t {
  none = 0,
  drop = 4,  ///< the drop of whatever matched no rule, at the end of every list
};

std::string_view stringValue(AclType type);
std::string_view stringValue(AclDirection direction);
std::string_view stringValue(Action action);
std::string_view stringValue(ImplicitRuleType type);

/// The value that a text names, as stringValue() writes it; false (and nothing written) for any other text.
bool sequenceToValue(std::string_view text, AclType* value);
bool sequenceToValue(std::string_view text, AclDirection* value);
bool sequenceToValue(std::string_view text, ImplicitRuleType* value);

inline std::ostream& operator<<(std::ostream& out, AclType type) { return out << stringValue(type); }
inline std::ostream& operator<<(std::ostream& out, AclDirection direction) {
  return out << stringValue(direction);
}

template <class E>
concept NamedEnum = std::is_enum_v<E> && requires(E e) {
  { ::Acl::stringValue(e) } -> std::same_as<std::string_view>;
};

}  // namespace Acl

template <Acl::NamedEnum E>
struct fmt::formatter<E> : fmt::formatter<std::string_view> {
  template <class Context>
  auto format(E value, Context& ctx) const {
    return fmt::formatter<std::string_view>::format(Acl::stringValue(value), ctx);
  }
};
