#include <Acl/Types.h>

#include <span>
#include <utility>

namespace Acl {

namespace {

template <class E>
struct Name {
  E value;
  std::string_view text;
};

constexpr Name<AclType> typeNames[] = {{AclType::ip, "ip"}, {AclType::ipv6, "ipv6"}, {AclType::mac, "mac"}};
constexpr Name<AclDirection> directionNames[] = {{AclDirection::in, "in"}, {AclDirection::out, "out"}};
constexpr Name<Action> actionNames[] = {{Action::permit, "permit"}, {Action::deny, "deny"}};
constexpr Name<ImplicitRuleType> implicitNames[] = {{ImplicitRuleType::none, "none"},
                                                    {ImplicitRuleType::drop, "drop"}};

template <class E>
std::string_view textOf(std::span<const Name<E>> names, E value) {
  for (const auto& name : names) {
    if (name.value == value) return name.text;
  }
  return "unknown";
}

template <class E>
bool valueOf(std::span<const Name<E>> names, std::string_view text, E* value) {
  for (const auto& name : names) {
    if (name.text != text) continue;
    *value = name.value;
    return true;
  }
  return false;
}

}  // namespace

std::string_view stringValue(AclType type) { return textOf<AclType>(typeNames, type); }
std::string_view stringValue(AclDirection direction) {
  return textOf<AclDirection>(directionNames, direction);
}
std::string_view stringValue(Action action) { return textOf<Action>(actionNames, action); }
std::string_view stringValue(ImplicitRuleType type) { return textOf<ImplicitRuleType>(implicitNames, type); }

bool sequenceToValue(std::string_view text, AclType* value) {
  return valueOf<AclType>(typeNames, text, value);
}
bool sequenceToValue(std::string_view text, AclDirection* value) {
  return valueOf<AclDirection>(directionNames, text, value);
}
bool sequenceToValue(std::string_view text, ImplicitRuleType* value) {
  return valueOf<ImplicitRuleType>(implicitNames, text, value);
}

}  // namespace Acl
