#include <agent/proof/VlansOf.h>

#include <utility>

namespace Proof {

std::vector<InVlans> vlansOf(PacketSet set, const RuleSets& sets) {
  std::vector<InVlans> all;
  const BitSpan span = sets.spanOf(Field::vlan);
  while (!set.isEmpty()) {
    const Packet packet = sets.exampleOf(set);
    PacketSet alike = sets.sets().all();
    for (const FieldBits& each : fieldBits) {
      if (each.field != Field::vlan)
        alike = alike & sets.masked(each.field, packet[each.field], {~uint64_t{0}, ~uint64_t{0}});
    }
    const PacketSet vlans = sets.sets().projected(set & alike, span);
    all.push_back({sets.sets().runsOf(vlans, span), packet});
    set = set - vlans;
  }
  return all;
}

PacketSet withVlans(const std::vector<InVlans>& vlans, const RuleSets& sets) {
  std::vector<PacketSet> parts;
  for (const InVlans& each : vlans) parts.push_back(sets.within(Field::vlan, each.vlans));
  return joined(std::move(parts));
}

}  // namespace Proof
