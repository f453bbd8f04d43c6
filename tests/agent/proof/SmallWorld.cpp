#include "SmallWorld.h"

#include "ProofSupport.h"

#include <functional>

namespace TestSupport {

namespace {

constexpr uint8_t protocolOperands[] = {6, 6, 17, 1, 58, 132, 99, 60};
constexpr uint16_t portOperands[] = {0, 80, 443, 65535};
constexpr uint8_t hopOperands[] = {0, 1, 64, 255};
constexpr uint16_t vlanIds[] = {0, 1, 100, 2049};
constexpr uint16_t vlanWildcards[] = {0, 0, 1, 0xffe, 0xfff};
constexpr uint8_t classOperands[] = {0x00, 0x04, 0x03, 0xff};
constexpr uint8_t classMasks[] = {0xfc, 0x03, 0xff};
constexpr uint8_t flagOperands[] = {0x02, 0x10, 0x12, 0x04};
constexpr uint16_t typeOperands[] = {0x0800, 0x0806};

using Differential::Fields;
using Packets = std::vector<Fields>;

/// Every packet with every one of some values.
template <class T>
void vary(Packets& packets, T Fields::*field, const std::vector<T>& values) {
  Packets all;
  for (const Fields& packet : packets) {
    for (const T& value : values) {
      all.push_back(packet);
      all.back().*field = value;
    }
  }
  packets = std::move(all);
}

void addressIs(Nimnet::IpAddr& address, uint32_t value) { address.value = value; }
// Both ends of an IPv6 address are looked at.
void addressIs(Nimnet::Ip6Addr& address, uint32_t value) {
  address = {uint64_t{value >> 1} << 63, value & 1};
}
void addressIs(Nimnet::EthAddr& address, uint32_t value) { address = Nimnet::EthAddr::fromValue(value); }

template <class Rule>
Differential::U128 addressOf(uint32_t value) {
  if (!std::is_same_v<Rule, Acl::Ip6Rule>) return value;
  return (Differential::U128{value >> 1} << 127) | (value & 1);
}

}  // namespace

template <class Rule>
SmallWorld<Rule>::SmallWorld(Dice& dice) : dice_(dice) {
  const std::vector<Condition> mac = {source, destination, vlan, etherType};
  const std::vector<Condition> ip = {source, destination, vlan, protocol, trafficClass,   hops,
                                     later,  sourcePort,  icmp, flags,    destinationPort};
  for (auto count = 1 + dice.below(3); count > 0; --count)
    asked_ |= 1u << dice.of(std::is_same_v<Rule, Acl::MacRule> ? mac : ip);
}

template <class Rule>
Acl::PortMatch SmallWorld<Rule>::ports() {
  using Acl::Compare;
  Acl::PortMatch match;
  match.op = static_cast<Compare>(1 + dice_.below(5));
  const bool listed = match.op == Compare::eq || match.op == Compare::neq;
  match.count = static_cast<uint8_t>(match.op == Compare::range ? 2 : listed ? 1 + dice_.below(3) : 1);
  for (uint8_t i = 0; i < match.count; ++i) match.ports[i] = dice_.of(portOperands);
  if (match.op == Compare::range && match.ports[0] > match.ports[1])
    std::swap(match.ports[0], match.ports[1]);
  return match;
}

template <class Rule>
template <class Filter>
void SmallWorld<Rule>::addressesOf(Filter& f) {
  const auto some = [this](auto& address, auto& mask) {
    addressIs(address, static_cast<uint32_t>(dice_.below(4)));
    addressIs(mask, static_cast<uint32_t>(dice_.below(4)));
  };
  if (asks(source)) some(f.source, f.sourceMask);
  if (asks(destination)) some(f.destination, f.destinationMask);
}

template <class Rule>
void SmallWorld<Rule>::baseOf(Acl::IpFilterBase& f) {
  if (asks(protocol)) f.protocolNamed = true, f.protocol = dice_.of(protocolOperands);
  if (asks(trafficClass)) f.trafficClass = dice_.of(classOperands), f.trafficClassMask = dice_.of(classMasks);
  if (asks(hops)) f.hops = {static_cast<Acl::Compare>(1 + dice_.below(4)), dice_.of(hopOperands)};
  if (asks(later)) f.fragments = true;
  if (asks(sourcePort)) f.sourcePort = ports();
  if (asks(destinationPort)) f.destinationPort = ports();
  if (asks(icmp)) {
    f.icmpTypeNamed = !dice_.once(4), f.icmpType = dice_.once(2) ? 8 : 0;
    f.icmpCodeNamed = !dice_.once(4), f.icmpCode = dice_.once(2) ? 1 : 0;
  }
  if (asks(flags)) f.tcpFlags = dice_.of(flagOperands);
  if (asks(flags)) f.established = true;
}

template <class Rule>
Rule SmallWorld<Rule>::rule(uint32_t sequence) {
  Rule rule;
  rule.sequence = sequence;
  rule.action = dice_.once(2) ? Acl::Action::deny : Acl::Action::permit;
  auto& f = rule.filter;
  addressesOf(f);
  if (asks(vlan)) f.vlan = {true, dice_.of(vlanIds), dice_.of(vlanWildcards)};
  if constexpr (std::is_same_v<Rule, Acl::MacRule>) {
    if (asks(etherType)) f.etherTypeNamed = true, f.etherType = dice_.of(typeOperands);
    if (dice_.once(20)) f.mplsLabelIs(16);
    if (dice_.once(20)) f.mplsInnerLabelIs(0);
  } else {
    baseOf(f);
    if (dice_.once(8)) {
      std::vector<typename Rule::FilterType> parts;
      for (auto count = dice_.below(4); count > 0; --count) {
        parts.push_back(f);
        addressesOf(parts.back());
      }
      f.alternatives = Acl::Alternatives<typename Rule::FilterType>(std::move(parts));
    }
  }
  return rule;
}

template <class Rule>
std::vector<Fields> SmallWorld<Rule>::packets() const {
  Packets all(1);
  all.front().protocol = 99;
  const auto address = [&](Differential::U128 Fields::*field) {
    vary(all, field, {addressOf<Rule>(0), addressOf<Rule>(1), addressOf<Rule>(2), addressOf<Rule>(3)});
  };
  if (has(source)) address(&Fields::source);
  if (has(destination)) address(&Fields::destination);
  if (has(vlan)) vary(all, &Fields::vlan, {0, 1, 2, 3, 100, 101, 2048, 2049});
  if (has(trafficClass)) vary(all, &Fields::trafficClass, {0, 1, 3, 4, 5, 7, 8, 9, 11, 0xfc, 0xfd, 0xff});
  if (has(hops)) vary(all, &Fields::hops, {0, 1, 2, 64, 65, 255});
  if (has(etherType)) vary(all, &Fields::etherType, {0x0800, 0x0806, 0x88cc});
  if (has(protocol) || needsL4()) vary(all, &Fields::protocol, {6, 17, 1, 58, 132, 99, 60, 47});
  if (has(later) || needsL4() || has(protocol)) vary(all, &Fields::later, {false, true});
  if (has(sourcePort)) vary(all, &Fields::sourcePort, {0, 1, 80, 81, 443, 444, 65535});
  if (has(destinationPort)) vary(all, &Fields::destinationPort, {0, 1, 80, 81, 443, 444, 65535});
  if (has(icmp)) vary(all, &Fields::icmpType, {0, 8, 3});
  if (has(icmp)) vary(all, &Fields::icmpCode, {0, 1, 2});
  if (has(flags)) vary(all, &Fields::flags, {0, 0x02, 0x10, 0x12, 0x04, 0x06, 0x14, 0x16});
  std::erase_if(all, [](Fields& packet) { return !isReal<Rule>(packet); });
  return all;
}

template struct SmallWorld<Acl::IpRule>;
template struct SmallWorld<Acl::Ip6Rule>;
template struct SmallWorld<Acl::MacRule>;

}  // namespace TestSupport
