#pragma once

#include <Acl/Rule.h>
#include <Kiv/UniqueId.h>
#include <Zeb/HashMap2018.h>

#include <algorithm>
#include <tuple>
#include <vector>

namespace Acl {

/// The rules of one kind by id, and beside that in the order in which they are tried: by sequence number,
/// rules of one number by id. The order is kept up with every write, so that a packet never waits for it.
template <class Rule>
class RuleMap : public Zeb::HashMap2018<Kiv::UniqueId, Rule> {
  using Base = Zeb::HashMap2018<Kiv::UniqueId, Rule>;

 public:
  using Entry = typename Base::Entry;

  Zeb::MapWrite put(const Kiv::UniqueId& id, Rule rule) {
    const Entry* known = Base::findEntry(id);
    const bool moves = !known || known->value.sequence != rule.sequence;
    if (known && moves) ordered_.erase(placeOf(*known));
    const Zeb::MapWrite write = Base::put(id, std::move(rule));
    if (moves) {
      const Entry* entry = Base::findEntry(id);
      ordered_.insert(placeOf(*entry), entry);
    }
    return write;
  }

  bool erase(const Kiv::UniqueId& id) {
    const Entry* known = Base::findEntry(id);
    if (!known) return false;
    ordered_.erase(placeOf(*known));
    return Base::erase(id);
  }

  /// In the order of trial.
  const std::vector<const Entry*>& ordered() const { return ordered_; }

  /// The rule of a sequence number, the first one when there are several; null when there is none.
  const Entry* atSequence(uint32_t sequence) const {
    auto at = std::lower_bound(ordered_.begin(), ordered_.end(), sequence,
                               [](const Entry* entry, uint32_t s) { return entry->value.sequence < s; });
    return at != ordered_.end() && (*at)->value.sequence == sequence ? *at : nullptr;
  }

 private:
  auto placeOf(const Entry& entry) {
    return std::lower_bound(ordered_.begin(), ordered_.end(), &entry, [](const Entry* a, const Entry* b) {
      return std::tie(a->value.sequence, a->key) < std::tie(b->value.sequence, b->key);
    });
  }

  std::vector<const Entry*> ordered_;
};

}  // namespace Acl
