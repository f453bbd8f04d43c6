#pragma once

#include <Acl/Rule.h>
#include <Acl/RuleOrder.h>
#include <Kiv/UniqueId.h>
#include <Zeb/HashMap2018.h>

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
    if (known && moves) ordered_.erase(known);
    const Zeb::MapWrite write = Base::put(id, std::move(rule));
    if (moves) ordered_.insert(Base::findEntry(id));
    return write;
  }

  bool erase(const Kiv::UniqueId& id) {
    const Entry* known = Base::findEntry(id);
    if (!known) return false;
    ordered_.erase(known);
    return Base::erase(id);
  }

  const Rule* find(const Kiv::UniqueId& id) const { return Base::find(id); }
  void clear() {
    ordered_.clear();
    Base::clear();
  }

  /// In the order of trial.
  const RuleOrder<Entry>& ordered() const { return ordered_; }

  /// The rule of a sequence number, the first one when there are several; null when there is none.
  const Entry* atSequence(uint32_t sequence) const {
    const Entry* entry = ordered_.from(sequence);
    return entry && entry->value.sequence == sequence ? entry : nullptr;
  }

 private:
  RuleOrder<Entry> ordered_;
};

}  // namespace Acl
