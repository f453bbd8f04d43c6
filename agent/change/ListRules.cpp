#include <Acl/RuleKinds.h>
#include <agent/change/ListRules.h>

#include <variant>

namespace Agent {

size_t ListRules::size() const {
  return Acl::withRuleKind(type_, [this](auto kind) { return kind.rules(*list_).size(); });
}

Kiv::UniqueId ListRules::idAt(uint32_t sequence) const {
  return Acl::withRuleKind(type_, [this, sequence](auto kind) {
    const auto* entry = kind.rules(*list_).atSequence(sequence);
    return entry ? entry->key : Kiv::UniqueId();
  });
}

void ListRules::write(const Kiv::UniqueId& id, const Config::Rule& rule) {
  Acl::withRuleKind(type_, [&](auto kind) {
    kind.write(*list_, id, std::get<typename decltype(kind)::Rule::Draft>(rule));
  });
}

void ListRules::remove(const Kiv::UniqueId& id) {
  Acl::withRuleKind(type_, [&](auto kind) { kind.remove(*list_, id); });
}

void ListRules::removeFirst() {
  Acl::withRuleKind(type_,
                    [this](auto kind) { kind.remove(*list_, kind.rules(*list_).ordered().front()->key); });
}

}  // namespace Agent
