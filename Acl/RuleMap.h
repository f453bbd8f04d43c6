#pragma once

#include <Acl/CompiledRules.h>
#include <Acl/RuleConfig.h>
#include <Acl/RuleOrder.h>
#include <Kiv/UniqueId.h>
#include <Zeb/HashMap2018.h>

#include <memory>
#include <vector>

namespace Acl {

/// The rules of one kind by id, and beside that in the order in which they are tried: by sequence number,
/// rules of one number by id. Order and, once compile() was called, compiled form are kept up with every
/// write, so that a packet never waits for them.
template <class Rule>
class RuleMap : public Zeb::HashMap2018<Kiv::UniqueId, Rule> {
  using Base = Zeb::HashMap2018<Kiv::UniqueId, Rule>;

 public:
  using Entry = typename Base::Entry;

  Zeb::MapWrite put(const Kiv::UniqueId& id, Rule rule) {
    const Entry* known = Base::findEntry(id);
    const bool moves = !known || known->value.sequence() != rule.sequence();
    const bool other = moves || !(known->value.filter() == rule.filter());
    if (known && other) {
      const uint32_t slot = moves ? ordered_.erase(known) : ordered_.slotOf(known);
      if (compiled_) compiled_->erase(slot);
    }
    const Zeb::MapWrite write = Base::put(id, std::move(rule));
    if (!other) return write;
    const Entry* now = Base::findEntry(id);
    const uint32_t slot = compiled_ ? compiled_->insert(now) : 0;
    if (moves) {
      ordered_.insert(now, slot);
    } else {
      ordered_.slotOf(now) = slot;
    }
    return write;
  }

  bool erase(const Kiv::UniqueId& id) {
    const Entry* known = Base::findEntry(id);
    if (!known) return false;
    const uint32_t slot = ordered_.erase(known);
    if (compiled_) compiled_->erase(slot);
    return Base::erase(id);
  }

  const Rule* find(const Kiv::UniqueId& id) const { return Base::find(id); }
  void clear() {
    const bool wasCompiled = compiled_ != nullptr;
    compiled_.reset();
    ordered_.clear();
    Base::clear();
    if (wasCompiled) compile();
  }

  /// From now on packets are judged by the compiled form, as soon as it is there. For lists that are in
  /// force.
  void compile() {
    std::vector<const Entry*> entries;
    entries.reserve(ordered_.size());
    ordered_.numberSlots([&entries](const Entry* entry) {
      entries.push_back(entry);
      return static_cast<uint32_t>(entries.size() - 1);
    });
    compiled_ = compileRules<Rule>(entries);
  }
  /// Null when compile() was not called.
  const CompiledRules<Rule>* compiled() const { return compiled_.get(); }
  /// See CompiledRules; without a compiled form nothing happens.
  void upkeepIs(bool on) {
    if (compiled_) compiled_->upkeepIs(on);
  }

  /// In the order of trial.
  const RuleOrder<Entry>& ordered() const { return ordered_; }

  /// The rule of a sequence number, the first one when there are several; null when there is none.
  const Entry* atSequence(uint32_t sequence) const {
    const Entry* entry = ordered_.from(sequence);
    return entry && entry->value.sequence() == sequence ? entry : nullptr;
  }

 private:
  RuleOrder<Entry> ordered_;
  std::unique_ptr<CompiledRules<Rule>> compiled_;
};

}  // namespace Acl
