#include <Nimnet/EthHdr.h>
#include <agent/proof/Example.h>
#include <agent/study/PacketWay.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

using Acl::AclDirection;
using Acl::AclType;
using Proof::Field;
using Proof::PacketSet;
using Proof::RuleSets;
using Seen = std::vector<Proof::InVlans> Beside::*;

uint16_t etherTypeOf(AclType type) {
  return type == AclType::ip ? Nimnet::EtherType::ip : Nimnet::EtherType::ip6;
}

/// Of all packets of the kind of the sets those that lists of another kind are asked about, too.
PacketSet sharedWith(AclType other, const RuleSets& sets) {
  return sets.type() == AclType::mac ? sets.is(Field::etherType, etherTypeOf(other)) & sets.packets()
                                     : sets.packets();
}
bool isSharedWith(AclType other, AclType type, const Proof::Packet& packet) {
  return type != AclType::mac || packet[Field::etherType].low == etherTypeOf(other);
}

PacketSet seenBy(const Beside& beside, Seen seen, const PacketSet& among, const RuleSets& sets) {
  return among & sharedWith(beside.type, sets) & withVlans(beside.*seen, sets);
}

const Proof::Packet* packetIn(const std::vector<Proof::InVlans>& all, uint64_t vlan) {
  for (const Proof::InVlans& each : all) {
    for (const Proof::Run& run : each.vlans) {
      if (run.low <= vlan && vlan <= run.high) return &each.packet;
    }
  }
  return nullptr;
}

}  // namespace

PacketWay::PacketWay(Proof::MetList list) {
  if (list) listsOf(list->type).front() = list;
}

PacketWay::PacketWay(const Effective& effective, const std::string& from, const std::string& to) {
  add(effective, from, AclDirection::in, 0);
  add(effective, to, AclDirection::out, 2);
}

void PacketWay::add(const Effective& effective, const std::string& port, AclDirection direction,
                    size_t place) {
  if (port.empty()) return;
  const auto channel = effective.channelOf.find(port);
  for (const AclType type : Acl::aclTypes) {
    const auto listAt = [&](const std::string& interface) -> Proof::MetList {
      const Config::BindingKey key{type, direction, interface};
      if (!effective.bindings.contains(key)) return nullptr;
      const auto list = effective.lists.find({type, effective.listAt(key)});
      return list == effective.lists.end() ? nullptr : &list->second.model->lists.at(list->first);
    };
    if (channel != effective.channelOf.end()) listsOf(type)[place] = listAt(channel->second);
    listsOf(type)[place + 1] = listAt(port);
  }
}

Besides besidesOf(const PacketWay& way, AclType type, size_t place, const Proof::Limits& limits) {
  const bool mac = type == AclType::mac;
  const size_t count = mac ? place : std::min(place + 1, PacketWay::places);
  Besides all;
  for (const AclType other : mac ? std::vector{AclType::ip, AclType::ipv6} : std::vector{AclType::mac}) {
    const auto lists = way.lists(other);
    const auto end = lists.begin() + static_cast<long>(count);
    if (std::all_of(lists.begin(), end, [](Proof::MetList list) { return !list; })) continue;
    const RuleSets sets(other, limits);
    const PacketSet asked = sharedWith(type, sets);
    PacketSet passing = asked;
    for (auto list = lists.begin(); list != end; ++list) passing = Proof::permitted(*list, passing, sets);
    if (passing != asked) all.push_back({other, vlansOf(passing, sets), vlansOf(asked - passing, sets)});
  }
  return all;
}

PacketSet passingAmong(const Besides& besides, const PacketSet& among, const RuleSets& sets) {
  PacketSet left = among;
  for (const Beside& each : besides)
    left = (left - sharedWith(each.type, sets)) | seenBy(each, &Beside::passing, left, sets);
  return left;
}

PacketSet droppedAmong(const Besides& besides, const PacketSet& among, const RuleSets& sets) {
  std::vector<PacketSet> parts;
  for (const Beside& each : besides) parts.push_back(seenBy(each, &Beside::dropped, among, sets));
  return joined(std::move(parts));
}

std::string exampleIn(const Besides& besides, bool passes, AclType type, const Proof::Packet& packet) {
  for (const Beside& each : besides) {
    if (!isSharedWith(each.type, type, packet)) continue;
    const uint64_t vlan = packet[Field::vlan].low;
    const Proof::Packet *passed = packetIn(each.passing, vlan), *lost = packetIn(each.dropped, vlan);
    if (!passed || !lost) continue;
    Proof::Packet other = passes ? *passed : *lost;
    other[Field::vlan].low = vlan;
    return type == AclType::mac ? exampleText(each.type, other, packet) : exampleText(type, packet, other);
  }
  return exampleText(type, packet);
}

}  // namespace Agent
