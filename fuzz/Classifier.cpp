// A list in its compiled form against its rules in their order: whatever rules it has, with every kernel,
// through any history of changes, with a thread that compiles beside it or without.

#include "../tests/Acl/DifferentialHistory.h"
#include "Target.h"

#include <Acl/Workshop.h>
#include <Classify/Find.h>

namespace {

using namespace TestSupport::Differential;

template <class Rule>
void runHistory(Fuzz::Dice& dice) {
  History<Rule> history(dice);
  history.run(true);
  const auto failed = history.failed();
  Fuzz::require(!failed, [&] { return *failed; });
}

void runKind(uint64_t kind, Fuzz::Dice& dice) {
  if (kind == 0) return runHistory<Acl::IpRule>(dice);
  if (kind == 1) return runHistory<Acl::Ip6Rule>(dice);
  runHistory<Acl::MacRule>(dice);
}

}  // namespace

void Fuzz::run(Dice& dice) {
  constexpr Classify::Unit units[] = {Classify::Unit::portable, Classify::Unit::avx2, Classify::Unit::avx512};
  const auto* usual = Classify::kernels;
  if (const auto* kernels = Classify::kernelsOf(dice.of(units))) Classify::kernels = kernels;
  // When the thread is ready is up to the machine.
  const bool thread = dice.once(4);
  Acl::Workshop::singleton().threadIs(thread);
  const uint64_t kind = dice.below(3);
  // The octets say every choice of a small list; a large one has more choices than any input has octets.
  if (dice.once(2)) {
    Dice random(dice.any());
    runKind(kind, random);
  } else {
    runKind(kind, dice);
  }
  Acl::Workshop::singleton().threadIs(false);
  Classify::kernels = usual;
}
