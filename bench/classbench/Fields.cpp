#include "classbench/Checks.h"
#include "classbench/Dice.h"
#include "classbench/Generate.h"
#include "classbench/Sections.h"

namespace Bench {

namespace {

using Ip = Acl::IpRule;
using Acl::Compare;

constexpr uint16_t vlanIds[] = {0, 10, 20, 30};
constexpr uint8_t dscps[] = {0, 10, 26, 46};

/// One more thing that rules can ask.
struct Field {
  const char* name;
  void (*ask)(Dice&, Acl::IpFilter&);
};

void askDscp(Dice& dice, Acl::IpFilter& f) {
  f.trafficClass = static_cast<uint8_t>(dice.of(dscps) << 2);
  f.trafficClassMask = 0xfc;
}
void askTtl(Dice& dice, Acl::IpFilter& f) {
  f.hops = {dice.once(2) ? Compare::gt : Compare::lt, static_cast<uint8_t>(1 + dice.below(254))};
}
void askFlags(Dice& dice, Acl::IpFilter& f) {
  if (!f.protocolNamed || f.protocol != 6) return;
  if (dice.once(2)) {
    f.established = true;
  } else {
    f.tcpFlags = Nimnet::TcpHdr::syn;
  }
}
void askIcmp(Dice& dice, Acl::IpFilter& f) {
  f.protocolNamed = true;
  f.protocol = 1;
  f.sourcePort = f.destinationPort = {};
  f.icmpTypeNamed = true;
  f.icmpType = static_cast<uint8_t>(dice.below(16));
}
void askVlan(Dice& dice, Acl::IpFilter& f) { f.vlan = {true, dice.of(vlanIds), 0}; }
void askFragments(Dice&, Acl::IpFilter& f) {
  f.sourcePort = f.destinationPort = {};
  f.fragments = true;
}
void askWildcard(Dice& dice, Acl::IpFilter& f) {
  // One or two bits in the middle of an address do not matter.
  auto& mask = dice.once(2) ? f.sourceMask : f.destinationMask;
  mask.value &= ~(1u << dice.between(4, 27)) & ~(1u << dice.between(4, 27));
}
void askAny(Dice& dice, Acl::IpFilter& f);

constexpr Field fields[] = {{"DSCP", askDscp},
                            {"TTL", askTtl},
                            {"TCP flags", askFlags},
                            {"ICMP type", askIcmp},
                            {"VLAN", askVlan},
                            {"fragments", askFragments},
                            {"wildcard bits", askWildcard},
                            {"all of these", askAny}};

void askAny(Dice& dice, Acl::IpFilter& f) { fields[dice.below(std::size(fields) - 1)].ask(dice, f); }

/// The packets of a trace with anything in the other fields.
std::vector<IpPacket> variedPackets(const std::vector<TupleHeader>& headers, uint64_t seed) {
  Dice dice(seed);
  auto packets = packetsOf(headers, ipPacket);
  for (IpPacket& packet : packets) {
    packet.ip.bytes[1] = static_cast<uint8_t>(dice.of(dscps) << 2);
    packet.ip.bytes[8] = static_cast<uint8_t>(dice.between(1, 255));
    packet.around.vlanId = dice.of(vlanIds);
    if (packet.around.protocol == 6)
      packet.l4Octets[13] = dice.once(8) ? Nimnet::TcpHdr::syn : Nimnet::TcpHdr::ack;
    if (packet.around.protocol == 1) packet.l4Octets[0] = static_cast<uint8_t>(dice.below(16));
    if (!dice.once(16)) continue;
    write16(packet.ip.bytes + 6, 100);
    packet.around.protocol = 0;  // a later fragment has no L4 header
  }
  return packets;
}

/// Gives a packet what a rule asks for in the other fields.
void meet(const Acl::IpFilter& f, IpPacket& packet) {
  if (f.trafficClassMask) packet.ip.bytes[1] = f.trafficClass;
  if (f.hops.op == Compare::gt) packet.ip.bytes[8] = static_cast<uint8_t>(f.hops.value + 1);
  if (f.hops.op == Compare::lt) packet.ip.bytes[8] = static_cast<uint8_t>(f.hops.value - 1);
  if (f.established) packet.l4Octets[13] = Nimnet::TcpHdr::ack;
  if (f.tcpFlags) packet.l4Octets[13] = f.tcpFlags;
  if (f.icmpTypeNamed) {
    write16(packet.ip.bytes + 6, 0);  // no fragment, which would have no such header
    packet.ip.bytes[9] = packet.around.protocol = f.protocol;
    packet.l4Octets[0] = f.icmpType;
  }
  if (f.vlan.named) packet.around.vlanId = f.vlan.id;
  if (f.fragments) {
    write16(packet.ip.bytes + 6, 100);
    packet.around.protocol = 0;
  }
}

/// Each list gets packets that meet its rules: for each packet that meets one without, one that meets the
/// same rule although it asks for more. With anything in the other fields fewer packets meet a rule, and that
/// has its own price.
std::vector<IpPacket> askedFor(const std::vector<Ip>& rules, const OurList<Ip>& without,
                               std::vector<IpPacket> packets) {
  for (IpPacket& packet : packets) {
    const int32_t rule = without.lookUp(packet);
    if (rule != noRule) meet(rules[static_cast<size_t>(rule)].filter, packet);
  }
  return packets;
}

/// Measures one kind of list and adds its row; returns how many times as long it takes with the field.
double measure(Run& run, const Field& field, Style style, Table& table) {
  constexpr size_t size = 1000;
  constexpr uint64_t askIn = 4;  // one rule in four asks for more
  run.progress(fmt::format("other fields: {}, {}", field.name, nameOf(style)));
  const auto tuples = generateRules(style, size, run.seed);
  auto rules = ipRules(tuples);
  const OurList<Ip> without(rules);
  Dice dice(run.seed);
  for (Ip& rule : rules) {
    if (dice.once(askIn)) field.ask(dice, rule.filter);
  }
  const OurList<Ip> with(rules);
  const auto anything =
      variedPackets(uniformHeaders(tuples, std::min<size_t>(run.headers, 20000), run.seed + 1), run.seed + 2);
  const auto asked = askedFor(rules, without, anything);
  const std::string what = fmt::format("{} with {}", nameOf(style), field.name);
  checkInOrder(what, with, asked);
  checkInOrder(what, with, anything);
  // In pairs: of three, two would be of one list, which stays in the cache from one to the other.
  Contender plain = lookUpOf(without, anything), more = lookUpOf(with, asked);
  alternate({&plain, &more}, anything.size(), run.rounds);
  Contender again = lookUpOf(without, anything), others = lookUpOf(with, anything);
  alternate({&again, &others}, anything.size(), run.rounds);
  const double ratio = ratioOf(more, plain);
  table.rowIs({std::string(field.name), std::string(nameOf(style)), plain.ns, more.ns, Number{ratio, 2},
               others.ns, Number{ratioOf(others, again), 2}});
  return ratio;
}

}  // namespace

void measureFields(Run& run, const std::vector<RuleSet>&) {
  Table table(
      "1,000 rules, one in four of which asks for more than addresses, protocol and ports; ns a packet. "
      "Packets have what their rules ask for, or anything",
      {"asks for", "style", "without", "with", "with / without", "with, anything", "anything / without"});
  std::vector<std::pair<std::string, double>> means;
  for (const Field& field : fields) {
    std::vector<double> ratios;
    for (const Style style : styles) ratios.push_back(measure(run, field, style, table));
    means.emplace_back(field.name, geometricMean(ratios));
  }
  run.tableIs(table);
  for (const auto& [name, mean] : means)
    run.goalIs({name + " against the same list without", mean, 1.2, false});
}

}  // namespace Bench
