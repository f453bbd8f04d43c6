#include <agent/proof/OrderedSets.h>
#include <agent/proof/PartlyTaken.h>

#include <optional>
#include <utility>

namespace Proof {

namespace {

/// To know what is left behind very many rules would take longer than all else, and nobody could read it.
constexpr size_t many = 64;

class Parts {
 public:
  Parts(const Config::List& list, const RuleSets& sets, size_t mostBoxes)
      : sets_(sets), mostBoxes_(mostBoxes), rules_(sets) {
    loose_.add(list);
    for (const auto& [sequence, rule] : list.rules) rules_.add(sequence, 0, sets.of(rule));
  }

  size_t size() const { return rules_.size(); }
  /// Nothing of a rule that gets all that it asks for, or nothing.
  std::optional<PartlyTaken> of(size_t at) const {
    if (rules_[at].isDead) return std::nullopt;
    const auto earlier = rules_.near(at, 0, at);
    return earlier.size() > many ? behindMany(at, earlier) : behind(at, earlier);
  }

 private:
  std::optional<PartlyTaken> behind(size_t at, const std::vector<size_t>& earlier) const {
    PartlyTaken part{rules_[at].sequence};
    PacketSet left = rules_[at].asked;
    for (const size_t each : earlier) {
      PacketSet less = left - rules_[each].asked;
      if (less != left) part.by.push_back(rules_[each].sequence);
      left = std::move(less);
      if (left.isEmpty()) return std::nullopt;
    }
    if (part.by.empty()) return std::nullopt;
    tell(part, rules_[at].asked - left);
    part.left = boxesOf(left, sets_, loose_, mostBoxes_);
    part.exampleLeft = sets_.exampleOf(left);
    return part;
  }
  std::optional<PartlyTaken> behindMany(size_t at, const std::vector<size_t>& earlier) const {
    PartlyTaken part{rules_[at].sequence};
    for (size_t i = 0; i < earlier.size() && part.by.empty(); ++i) {
      const PacketSet taken = rules_[at].asked & rules_[earlier[i]].asked;
      if (taken.isEmpty()) continue;
      part.by.push_back(rules_[earlier[i]].sequence);
      part.others = earlier.size() - i - 1;
      const auto left = rules_.leftOf(at, earlier).packet;
      if (!left) return std::nullopt;
      part.exampleLeft = sets_.asUsual(*left, [&](const Bits& packet) {
        return rules_.has(at, packet) && !rules_.firstOf(earlier, packet);
      });
      tell(part, taken);
    }
    return part.by.empty() ? std::nullopt : std::optional(std::move(part));
  }
  void tell(PartlyTaken& part, const PacketSet& taken) const {
    part.taken = boxesOf(taken, sets_, loose_, mostBoxes_);
    part.example = sets_.exampleOf(taken);
  }

  const RuleSets& sets_;
  const size_t mostBoxes_;
  OrderedSets rules_;
  LooseBits loose_;
};

}  // namespace

void forEachPartlyTaken(const Config::List& list, const RuleSets& sets, size_t mostBoxes,
                        const std::function<bool(const PartlyTaken&)>& tell) {
  const Parts parts(list, sets, mostBoxes);
  for (size_t at = 0; at < parts.size(); ++at) {
    sets.sets().cameTo(at, parts.size());
    const auto part = parts.of(at);
    if (part && !tell(*part)) return;
  }
}

}  // namespace Proof
