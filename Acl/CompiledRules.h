#pragma once

#include <Acl/RuleConfig.h>
#include <Kiv/UniqueId.h>
#include <Zeb/MapEntry.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace Acl {

/// The compiled form of a rule map's rules, as the map sees it: the map tells it every change. Look-ups need
/// more, and use the class itself, see Compiled.h. The map owns the form and the entries. It keeps the slot
/// that the form gave to each entry.
template <class Rule>
class CompiledRules {
 public:
  using Entry = Zeb::MapEntry<Kiv::UniqueId, Rule>;

  virtual ~CompiledRules() = default;
  /// A rule that is in the map already; returns its slot.
  virtual uint32_t insert(const Entry* entry) = 0;
  /// A rule that is still as it was when it was put in.
  virtual void erase(uint32_t slot) = 0;
  /// Off, for many changes in a row: the form takes note of them and judges nothing. On again it is made
  /// anew. At first it is on.
  virtual void upkeepIs(bool on) = 0;
  /// False while the form judges nothing, and the rules are tried in their order.
  virtual bool ready() const = 0;
  /// True when nobody needs to wait: it is ready, or memory ran out while it was made and the rules are tried
  /// in their order until a change has it made again.
  virtual bool settled() const = 0;
  /// The heap memory in use.
  virtual size_t bytes() const = 0;
  /// How long it took to make the form that was made last; 0 while there is none.
  virtual double buildSeconds() const = 0;
};

/// Compiles rules; their slots are 0, 1, 2 and so on. There are forms for the three kinds of rule.
template <class Rule>
std::unique_ptr<CompiledRules<Rule>> compileRules(
    std::span<const Zeb::MapEntry<Kiv::UniqueId, Rule>* const> entries);

}  // namespace Acl
