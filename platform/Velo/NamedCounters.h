#pragma once

#include <Zeb/Attributes.h>

namespace Velo {

/// What a named counter counts: for instance category "Drop", the facility that drops, and its reason.
struct CounterName {
  Kelp::String category;
  Kelp::String facility;
  Kelp::String reason;

  uint32_t hash() const { return Kelp::keyHashAll(category, facility, reason); }
  bool operator==(const CounterName&) const = default;
  auto operator<=>(const CounterName&) const = default;
};

/// Counters that come into being when something is first counted under their name. A count is announced as a
/// change of `counter`.
class VeloNamedCounters : public Zeb::Entity {
  ZEB_ENTITY(VeloNamedCounters, Zeb::Entity)

 public:
  /// `times`: of several at once only the last is announced.
  void count(const Kelp::String& category, const Kelp::String& facility, const Kelp::String& reason,
             uint64_t times = 1) {
    const CounterName name{category, facility, reason};
    if (uint64_t* known = counter_.find(name)) {
      *known += times;
    } else {
      counter_.put(name, times);
    }
    publishChange(counterAttribute(), &name);
  }

  using CounterMap = Zeb::HashMap2018<CounterName, uint64_t>;
  const CounterMap& counter() const { return counter_; }
  ZEB_ROW(counter, Zeb::CollectionAttribute<ZebSelf, &ZebSelf::counter_> row("counter"))

 private:
  CounterMap counter_;
};

}  // namespace Velo
