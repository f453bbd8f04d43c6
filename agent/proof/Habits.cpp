#include <agent/proof/Habits.h>

#include <utility>
#include <variant>
#include <vector>

namespace Proof {

namespace {

/// A rule with another filter: `change` is called with it, and with each that it stands for.
template <class Change>
Config::Rule changed(Config::Rule rule, const Change& change) {
  std::visit(
      [&change](auto& one) {
        if constexpr (requires { one.filter.alternatives; }) {
          change(one.filter);
          if (!one.filter.alternatives.given()) return;
          auto all = one.filter.alternatives.all();
          for (auto& each : all) change(each);
          one.filter.alternatives = decltype(one.filter.alternatives)(std::move(all));
        }
      },
      rule);
  return rule;
}

bool permits(const Config::Rule& rule) { return Config::common(rule).action == Acl::Action::permit; }

bool deniesByPort(const Config::Rule& rule) {
  bool ports = false;
  changed(rule, [&ports](const Acl::IpFilterBase& filter) {
    ports = ports || !filter.sourcePort.isAny() || !filter.destinationPort.isAny();
  });
  return ports && !permits(rule);
}

PacketSet laterFragmentsOf(const Config::Rule& rule, const RuleSets& sets) {
  return sets.of(changed(rule, [](Acl::IpFilterBase& filter) {
    filter.sourcePort = filter.destinationPort = {};
    filter.tcpFlags = 0;
    filter.established = filter.icmpTypeNamed = filter.icmpCodeNamed = false;
    filter.fragments = true;
  }));
}

}  // namespace

bool isPermittedBefore(const Config::List& list, const RuleSets& sets, uint32_t sequence) {
  const auto end = list.rules.find(sequence);
  PacketSet left =
      sets.of(changed(end->second, [](Acl::IpFilterBase& filter) { filter.established = false; }));
  for (auto at = list.rules.begin(); at != end && !left.isEmpty(); ++at) {
    const PacketSet asked = sets.of(at->second);
    if (!permits(at->second) && !(left & asked).isEmpty()) return false;
    left = left - asked;
  }
  return left.isEmpty();
}

std::optional<Slip> firstSlip(const Config::List& list, const RuleSets& sets,
                              const std::set<uint32_t>& dead) {
  if (list.type == Acl::AclType::mac) return std::nullopt;
  struct OfFragments {
    const Config::Rule& rule;
    PacketSet fragments;
    bool ofOthersToo;
    uint32_t sequence() const { return Config::common(rule).sequence; }
  };
  std::vector<OfFragments> ofFragments;
  for (const auto& [sequence, rule] : list.rules) {
    const PacketSet asked = sets.of(rule);
    PacketSet fragments = asked & sets.laterFragments();
    if (!fragments.isEmpty()) ofFragments.push_back({rule, fragments, fragments != asked});
  }
  for (const auto& [sequence, rule] : list.rules) {
    if (!deniesByPort(rule) || dead.contains(sequence)) continue;
    PacketSet left = laterFragmentsOf(rule, sets);
    for (const OfFragments& other : ofFragments) {
      const PacketSet met = left & other.fragments;
      // What an earlier rule permits with its ports is not denied by this one: nothing slips by.
      const bool isMeant = other.ofOthersToo && other.sequence() < sequence;
      if (!met.isEmpty() && permits(other.rule) && !isMeant)
        return Slip{sequence, other.sequence(), sets.exampleOf(met)};
      left = left - met;
    }
  }
  return std::nullopt;
}

}  // namespace Proof
