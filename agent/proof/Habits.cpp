#include <agent/proof/Habits.h>
#include <agent/proof/OrderedSets.h>

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

void forEachSlip(const Config::List& list, const RuleSets& sets, const std::set<uint32_t>& dead,
                 const std::function<void(const Slip&)>& tell) {
  if (list.type == Acl::AclType::mac) return;
  // What rules ask of later fragments: of those that deny by port once more, behind all others, as if they
  // did not name ports.
  OrderedSets fragments(sets);
  std::set<uint32_t> ofOthersToo;
  for (const auto& [sequence, rule] : list.rules) {
    const PacketSet asked = sets.of(rule);
    PacketSet later = asked & sets.laterFragments();
    if (later != asked) ofOthersToo.insert(sequence);
    fragments.add(sequence, permits(rule), std::move(later));
  }
  size_t done = 0;
  for (const auto& [sequence, rule] : list.rules) {
    sets.sets().cameTo(done++, list.rules.size());
    if (!deniesByPort(rule) || dead.contains(sequence)) continue;
    const size_t own = fragments.size();
    fragments.add(sequence, 0, laterFragmentsOf(rule, sets));
    PacketSet left = fragments[own].asked;
    for (const size_t each : fragments.near(own, 0, list.rules.size())) {
      const auto& other = fragments[each];
      const PacketSet met = left & other.asked;
      // What an earlier rule permits with its ports is not denied by this one: nothing slips by.
      const bool isMeant = other.sequence < sequence && ofOthersToo.contains(other.sequence);
      if (!met.isEmpty() && other.effect != 0 && !isMeant) {
        tell({sequence, other.sequence, sets.exampleOf(met)});
        break;
      }
      left = left - met;
    }
  }
}

}  // namespace Proof
