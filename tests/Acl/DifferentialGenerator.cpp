#include "DifferentialGenerator.h"

#include <algorithm>

namespace TestSupport::Differential {

namespace {

using Acl::Compare;

template <class Rule>
constexpr bool isMac = std::is_same_v<Rule, Acl::MacRule>;
template <class Rule>
constexpr unsigned widthOf = std::is_same_v<Rule, Acl::IpRule> ? 32
                             : isMac<Rule>                     ? 48
                                                               : 128;

/// The low bits, as many as are given.
constexpr U128 ones(unsigned bits) { return bits >= 128 ? ~U128{0} : (U128{1} << bits) - 1; }

U128 random128(Dice& dice) { return U128{dice.any()} << 64 | dice.any(); }

void addressIs(Nimnet::IpAddr& address, U128 value) { address.value = static_cast<uint32_t>(value); }
void addressIs(Nimnet::Ip6Addr& address, U128 value) {
  address = {static_cast<uint64_t>(value >> 64), static_cast<uint64_t>(value)};
}
void addressIs(Nimnet::EthAddr& address, U128 value) {
  address = Nimnet::EthAddr::fromValue(static_cast<uint64_t>(value));
}

enum Kind : unsigned { any, prefix, exact, neighbour, wild, lastBits, kinds };

constexpr uint8_t protocols[] = {6, 6, 17, 17, 1, 58, 132, 47, 0, 255};
constexpr uint8_t hopValues[] = {0, 1, 2, 63, 64, 65, 254, 255};
constexpr uint16_t edgePorts[] = {0, 1, 1023, 1024, 65534, 65535};
constexpr uint16_t etherTypes[] = {0x0800, 0x86dd, 0x0806, 0, 1500, 1501, 0xffff};
constexpr uint16_t vlans[] = {0, 1, 2, 100, 101, 4094, 4095};

size_t someSize(Dice& dice) {
  constexpr size_t most[] = {2, 12, 12, 12, 40, 40, 40, 150, 300, 1000};
  if (dice.once(250)) return dice.below(5000);
  return dice.below(dice.of(most) + 1);
}

}  // namespace

template <class Rule>
Generator<Rule>::Generator(Dice& dice) : dice_(dice), size_(someSize(dice)) {
  const unsigned width = widthOf<Rule>;
  for (auto count = 1 + dice.below(5); count > 0; --count) {
    const U128 fresh = random128(dice) & ones(width);
    const U128 low = ones(static_cast<unsigned>(dice.below(width)));
    heads_.push_back(heads_.empty() || dice.once(2) ? fresh : (dice.of(heads_) & ~low) | (fresh & low));
  }
  // Most lists mix two kinds of address conditions; one list in eight has any addresses only.
  const bool anyOnly = dice.once(8);
  for (int i = 0; i < 3; ++i) kinds_.push_back(anyOnly ? any : static_cast<unsigned>(dice.below(kinds)));
  for (auto count = 1 + dice.below(12); count > 0; --count)
    portPool_.push_back(static_cast<uint16_t>(dice.any()));
  constexpr unsigned often[] = {0, 20, 3, 1};
  moreIn_ = anyOnly ? 1 : dice.of(often);
  marksOnly_ = anyOnly && dice.once(2);
  constexpr uint32_t numbers[] = {~uint32_t{0}, ~uint32_t{0}, 100000, 50, 3};
  sequences_ = dice.of(numbers);
}

template <class Rule>
uint32_t Generator<Rule>::sequence() {
  return static_cast<uint32_t>(1 + dice_.below(sequences_));
}

template <class Rule>
Kiv::UniqueId Generator<Rule>::id() {
  return Kiv::UniqueId(dice_.once(2) ? 1 + dice_.below(1u << 20) : dice_.any() | uint64_t{1} << 63);
}

template <class Rule>
auto Generator<Rule>::column() -> Column {
  const unsigned width = widthOf<Rule>;
  const U128 all = ones(width), head = dice_.of(heads_);
  Column made;
  switch (dice_.of(kinds_)) {
    case any:
      break;
    case prefix: {
      const auto length =
          static_cast<unsigned>(dice_.once(3) ? dice_.below(5) * width / 4 : dice_.below(width + 1));
      made.mask = all & ~ones(width - length);
      made.value = head;
      // Beside the head as often as above it.
      if (length > 0 && dice_.once(2)) made.value ^= U128{dice_.below(4)} << (width - length);
      break;
    }
    case exact:
      made = {head ^ dice_.below(64), all};
      break;
    case neighbour:
      made = {head ^ (U128{1} << dice_.below(width)), all};
      break;
    case wild:
      made.mask = random128(dice_) & all;
      if (dice_.once(2)) made.mask &= random128(dice_) & random128(dice_);
      if (dice_.once(4)) made.mask = all & ~(U128{1} << dice_.below(width));
      made.value = head ^ dice_.below(4);
      break;
    case lastBits:
      made.mask = ones(static_cast<unsigned>(1 + dice_.below(12)));
      made.value = dice_.below(4096);
      break;
  }
  made.value &= made.mask;
  return made;
}

template <class Rule>
uint16_t Generator<Rule>::port() {
  if (dice_.once(6)) return dice_.of(edgePorts);
  const auto beside = static_cast<uint16_t>(dice_.below(3) - 1);
  return static_cast<uint16_t>(dice_.of(portPool_) + (dice_.once(2) ? beside : 0));
}

template <class Rule>
Acl::PortMatch Generator<Rule>::ports() {
  Acl::PortMatch match;
  match.op = static_cast<Compare>(1 + dice_.below(5));
  const bool listed = match.op == Compare::eq || match.op == Compare::neq;
  match.count = static_cast<uint8_t>(match.op == Compare::range ? 2
                                     : listed && dice_.once(3)  ? 1 + dice_.below(10)
                                                                : 1);
  for (uint8_t i = 0; i < match.count; ++i) match.ports[i] = port();
  if (match.op == Compare::range && match.ports[0] > match.ports[1])
    std::swap(match.ports[0], match.ports[1]);
  return match;
}

template <class Rule>
void Generator<Rule>::someVlan(Acl::VlanMatch& vlan) {
  constexpr uint16_t wildcards[] = {0, 0, 1, 0x00f, 0xffe, 0xfff};
  vlan = {true, dice_.of(vlans), dice_.of(wildcards)};
}

template <class Rule>
void Generator<Rule>::baseOf(Acl::IpFilterBase& f) {
  constexpr uint8_t classMasks[] = {0xfc, 0xff, 0xe0, 0x03, 0x10};
  const auto someClass = [&] {
    f.trafficClass = static_cast<uint8_t>(dice_.any()), f.trafficClassMask = dice_.of(classMasks);
  };
  const auto someHops = [&] { f.hops = {static_cast<Compare>(1 + dice_.below(4)), dice_.of(hopValues)}; };
  if (marksOnly_) return dice_.once(2) ? someHops() : someClass();
  if (dice_.once(2)) f.protocolNamed = true, f.protocol = dice_.of(protocols);
  if (dice_.once(3)) f.sourcePort = ports();
  if (dice_.once(2)) f.destinationPort = ports();
  if (moreIn_ == 0 || !dice_.once(moreIn_)) return;
  switch (dice_.below(7)) {
    case 0:
      someVlan(f.vlan);
      break;
    case 1:
      f.icmpTypeNamed = !dice_.once(4);
      if (f.icmpTypeNamed) f.icmpType = static_cast<uint8_t>(dice_.below(4));
      if (!f.icmpTypeNamed || dice_.once(2))
        f.icmpCodeNamed = true, f.icmpCode = static_cast<uint8_t>(dice_.below(3));
      break;
    case 2:
      f.established = true;
      break;
    case 3:
      f.tcpFlags = static_cast<uint8_t>(dice_.below(64));
      break;
    case 4:
      someClass();
      break;
    case 5:
      someHops();
      break;
    case 6:
      f.fragments = true;
      break;
  }
  if (f.icmpTypeNamed || f.established || f.tcpFlags || f.fragments) f.sourcePort = f.destinationPort = {};
}

template <class Rule>
template <class Filter>
void Generator<Rule>::someAlternatives(Filter& f) {
  std::vector<Filter> all;
  for (auto count = dice_.below(6); count > 0; --count) {
    Filter one = f;
    const Column source = column(), destination = column();
    if (dice_.once(2)) addressIs(one.source, source.value), addressIs(one.sourceMask, source.mask);
    if (dice_.once(2))
      addressIs(one.destination, destination.value), addressIs(one.destinationMask, destination.mask);
    if (dice_.once(3) && !one.fragments && !one.icmpTypeNamed) one.destinationPort = ports();
    all.push_back(one);
  }
  // What made the filter is a packet's way to it; another filter beside it has others.
  if (!dice_.once(8)) all.insert(all.begin() + static_cast<std::ptrdiff_t>(dice_.below(all.size() + 1)), f);
  f.alternatives = Acl::Alternatives<Filter>(std::move(all));
}

template <class Rule>
Rule Generator<Rule>::rule() {
  Made made;
  if (const Made* known = someMade(); known && dice_.once(16)) {
    made = *known;  // once more, or with another address or action
    if (dice_.once(2)) made.source = column();
  } else {
    made.source = column();
    made.destination = column();
    if constexpr (isMac<Rule>) {
      if (dice_.once(2))
        made.rule.filter.etherTypeNamed = true, made.rule.filter.etherType = dice_.of(etherTypes);
      if (moreIn_ != 0 && dice_.once(2 * moreIn_)) someVlan(made.rule.filter.vlan);
      if (moreIn_ != 0 && dice_.once(50)) made.rule.filter.mplsLabelIs(16);
    } else {
      baseOf(made.rule.filter);
    }
  }
  auto& f = made.rule.filter;
  // What the mask leaves out may be anything.
  const U128 noise = dice_.once(4) ? random128(dice_) & ones(widthOf<Rule>) : 0;
  addressIs(f.source, made.source.value | (noise & ~made.source.mask));
  addressIs(f.sourceMask, made.source.mask);
  addressIs(f.destination, made.destination.value | (noise & ~made.destination.mask));
  addressIs(f.destinationMask, made.destination.mask);
  if constexpr (!isMac<Rule>) {
    f.alternatives = {};
    if (dice_.once(5)) someAlternatives(f);
  }
  made.rule.sequence = sequence();
  made.rule.action = dice_.once(2) ? Acl::Action::deny : Acl::Action::permit;

  constexpr size_t mostMade = 512;
  if (made_.size() < mostMade) {
    made_.push_back(made);
  } else {
    made_[nextMade_++ % mostMade] = made;
  }
  return made.rule;
}

template <class Rule>
U128 Generator<Rule>::near(const Column& column, bool inside) {
  const U128 all = ones(widthOf<Rule>), free = all & ~column.mask;
  const U128 fill = dice_.once(2) ? random128(dice_) : dice_.of(heads_);
  switch (dice_.below(8)) {
    case 0:
      return column.value;
    case 1:
      return column.value | free;
    case 2:
      if (inside) break;
      return (column.value - 1) & all;
    case 3:
      if (inside) break;
      return ((column.value | free) + 1) & all;
    case 4:
      if (inside) break;
      return (column.value | (fill & free)) ^ (U128{1} << dice_.below(widthOf<Rule>));
    default:
      break;
  }
  return column.value | (fill & free);
}

template <class Rule>
uint16_t Generator<Rule>::portNear(const Acl::PortMatch& match, bool inside) {
  const uint16_t other = dice_.once(2) ? port() : static_cast<uint16_t>(dice_.any());
  if (match.op == Compare::any) return other;
  const uint16_t operand = match.ports[dice_.below(match.count)];
  if (!inside)
    return dice_.once(4) ? other : static_cast<uint16_t>(operand + (dice_.once(2) ? 0 : dice_.below(3) - 1));
  switch (match.op) {
    case Compare::lt:
      return static_cast<uint16_t>(operand - 1);
    case Compare::gt:
      return static_cast<uint16_t>(operand + 1);
    case Compare::neq:
      return other;
    default:
      return operand;
  }
}

template <class Rule>
void Generator<Rule>::baseNear(Fields& p, const Acl::IpFilterBase& f, bool inside) {
  const uint8_t icmp = std::is_same_v<Rule, Acl::IpRule> ? 1 : 58;
  const bool asIs = inside || !dice_.once(8);
  p.protocol = dice_.of(protocols);
  if (f.protocolNamed && asIs) p.protocol = f.protocol;
  if (!f.protocolNamed && asIs) {
    if (f.icmpTypeNamed || f.icmpCodeNamed) p.protocol = icmp;
    if (f.established || f.tcpFlags) p.protocol = 6;
    if (!f.sourcePort.isAny() || !f.destinationPort.isAny()) p.protocol = dice_.once(2) ? 6 : 17;
  }
  p.protocolKnown = icmp == 1 || inside || !dice_.once(24);
  p.vlanKnown = inside || !dice_.once(16);
  p.hopsKnown = inside || !dice_.once(16);
  p.trafficClass = static_cast<uint8_t>(asIs ? f.trafficClass : dice_.any());
  p.hops = static_cast<uint8_t>((asIs ? f.hops.value : dice_.of(hopValues)) + dice_.below(3) - 1);
  p.later = f.fragments ? asIs : !inside && dice_.once(12);
  if (!p.later && p.protocolKnown && (inside || !dice_.once(24))) {
    p.l4 = p.protocol == 6      ? L4::tcp
           : p.protocol == 17   ? L4::udp
           : p.protocol == 132  ? L4::sctp
           : p.protocol == icmp ? L4::icmp
                                : L4::none;
  }
  p.sourcePort = portNear(f.sourcePort, inside);
  p.destinationPort = portNear(f.destinationPort, inside);
  p.flags = static_cast<uint8_t>(asIs ? f.tcpFlags | (dice_.any() & 0xff) : dice_.any());
  p.icmpType = asIs && f.icmpTypeNamed ? f.icmpType : static_cast<uint8_t>(dice_.below(4));
  p.icmpCode = asIs && f.icmpCodeNamed ? f.icmpCode : static_cast<uint8_t>(dice_.below(3));
}

template <class Rule>
Fields Generator<Rule>::packet() {
  Fields p;
  static const Made none;
  const bool inside = dice_.once(3);
  const Made* from = someMade();
  const Made* to = !inside && dice_.once(4) ? someMade() : from;
  if (!from) from = to = &none;
  p.source = near(from->source, inside);
  p.destination = near(to->destination, inside);
  const auto& f = from->rule.filter;
  p.vlan = dice_.of(vlans);
  if (f.vlan.named && (inside || dice_.once(2))) {
    p.vlan = static_cast<uint16_t>((f.vlan.id ^ (!inside && dice_.once(4) ? 1 : 0)) & 0xfff);
  }
  if constexpr (isMac<Rule>) {
    p.etherType = dice_.of(etherTypes);
    if (f.etherTypeNamed && (inside || !dice_.once(4))) {
      p.etherType = static_cast<uint16_t>(f.etherType + (!inside && dice_.once(8) ? 1 : 0));
    }
  } else {
    baseNear(p, f, inside);
  }
  return p;
}

template class Generator<Acl::IpRule>;
template class Generator<Acl::Ip6Rule>;
template class Generator<Acl::MacRule>;

}  // namespace TestSupport::Differential
