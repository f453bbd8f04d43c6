#include "../support/RandomFrames.h"
#include "../support/Sanitizers.h"
#include "MatchSupport.h"
#include "ReferenceMatcher.h"

#include <array>

// The matchers against the reference, on lists and frames that are made from a few addresses, ports and
// values, so that rules overlap with each other and with the packets.

namespace {

using namespace TestSupport;
using namespace Acl;

constexpr int listsOfAKind = TestSupport::sanitizers ? 500 : 4000;
constexpr int framesOfAList = 50;

constexpr const char* masks4[] = {"255.255.255.255", "255.255.255.0", "255.255.255.128", "0.0.0.1",
                                  "240.0.0.2"};
constexpr const char* masks6[] = {"ffff:ffff::", "ffff:ffff:ffff:ffff::", "::1", "8000::2",
                                  "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"};
constexpr const char* macMasks[] = {"ff:ff:ff:ff:ff:ff", "ff:ff:ff:00:00:00", "00:00:00:00:00:01",
                                    "01:00:00:00:00:00"};

PortMatch somePorts(Dice& dice) {
  PortMatch port;
  port.op = static_cast<Compare>(1 + dice.below(5));
  port.count = port.op == Compare::range                           ? 2
               : port.op == Compare::eq || port.op == Compare::neq ? static_cast<uint8_t>(1 + dice.below(10))
                                                                   : 1;
  for (uint8_t i = 0; i < port.count; ++i) port.ports[i] = dice.of(ports);
  if (port.op == Compare::range && port.ports[0] > port.ports[1]) std::swap(port.ports[0], port.ports[1]);
  return port;
}

void someVlan(Dice& dice, VlanMatch& vlan) {
  constexpr uint16_t wildcards[] = {0, 1, 0x00f, 0xffe};
  if (dice.once(5)) vlan = {true, dice.of(vlans), dice.of(wildcards)};
}

/// About a third of the fields of a rule ask something; few ask too much to be met.
void someBase(Dice& dice, IpFilterBase& f, bool six) {
  someVlan(dice, f.vlan);
  if (dice.once(2)) f.protocolNamed = true, f.protocol = dice.of(protocols);
  const bool ported = f.protocol == 6 || f.protocol == 17 || f.protocol == 132 || dice.once(8);
  if (ported && dice.once(3)) f.sourcePort = somePorts(dice);
  if (ported && dice.once(2)) f.destinationPort = somePorts(dice);
  if (f.protocol == (six ? 58 : 1) && dice.once(2)) {
    f.icmpTypeNamed = true, f.icmpType = static_cast<uint8_t>(dice.below(4));
    if (dice.once(2)) f.icmpCodeNamed = true, f.icmpCode = static_cast<uint8_t>(dice.below(3));
  }
  if (f.protocol == 6 && dice.once(3)) f.established = true;
  if (f.protocol == 6 && dice.once(3)) f.tcpFlags = static_cast<uint8_t>(dice.below(64));
  constexpr uint8_t classMasks[] = {0xfc, 0xff, 0xe0, 0x03};
  if (dice.once(5)) f.trafficClass = dice.of(classes), f.trafficClassMask = dice.of(classMasks);
  if (dice.once(5)) f.hops = {static_cast<Compare>(1 + dice.below(4)), dice.of(hops)};
  if (dice.once(8)) f.fragments = true;
}

void someFilter(Dice& dice, IpFilter& f) {
  if (dice.once(2)) f.source = ip4(dice.of(addresses4)), f.sourceMask = ip4(dice.of(masks4));
  if (dice.once(2)) f.destination = ip4(dice.of(addresses4)), f.destinationMask = ip4(dice.of(masks4));
  someBase(dice, f, false);
}

void someFilter(Dice& dice, Ip6Filter& f) {
  if (dice.once(2)) f.source = ip6(dice.of(addresses6)), f.sourceMask = ip6(dice.of(masks6));
  if (dice.once(2)) f.destination = ip6(dice.of(addresses6)), f.destinationMask = ip6(dice.of(masks6));
  someBase(dice, f, true);
}

void someFilter(Dice& dice, MacFilter& f) {
  constexpr uint16_t types[] = {0x0800, 0x86dd, 0x0806, 0x88cc};
  if (dice.once(2)) f.source = mac(dice.of(macs)), f.sourceMask = mac(dice.of(macMasks));
  if (dice.once(2)) f.destination = mac(dice.of(macs)), f.destinationMask = mac(dice.of(macMasks));
  if (dice.once(2)) f.etherTypeNamed = true, f.etherType = dice.of(types);
  someVlan(dice, f.vlan);
}

template <class Rule>
std::vector<Rule> someRules(Dice& dice) {
  std::vector<Rule> rules(1 + dice.below(12));
  for (size_t i = 0; i < rules.size(); ++i) {
    rules[i].sequence = static_cast<uint32_t>((i * 7919) % 101 + 1);  // not in the order of the vector
    someFilter(dice, rules[i].filter);
  }
  return rules;
}

Bytes someFrame(Dice& dice, const IpRule&) { return randomIp4Frame(dice); }
Bytes someFrame(Dice& dice, const Ip6Rule&) { return randomIp6Frame(dice); }
Bytes someFrame(Dice& dice, const MacRule&) { return randomFrame(dice); }

template <class Rule>
class MatchProperty : public testing::Test {};
struct KindName {
  template <class Rule>
  static std::string GetName(int) {
    return std::is_same_v<Rule, IpRule> ? "ip" : std::is_same_v<Rule, Ip6Rule> ? "ipv6" : "mac";
  }
};
using Kinds = testing::Types<IpRule, Ip6Rule, MacRule>;
TYPED_TEST_SUITE(MatchProperty, Kinds, KindName);

TYPED_TEST(MatchProperty, AgreesWithTheReferenceOnWhichRuleIsMet) {
  using Rule = TypeParam;
  std::map<std::optional<uint32_t>, int> outcomes;
  for (uint32_t seed = 1; seed <= listsOfAKind; ++seed) {
    Dice dice(seed);
    const std::vector<Rule> rules = someRules<Rule>(dice);
    const auto list = listOf<Rule>(rules);
    for (int i = 0; i < framesOfAList; ++i) {
      const Bytes packet = someFrame(dice, Rule());
      const auto expected = ReferenceMatcher(packet).first(rules);
      const auto found = hit<Rule>(packet, list);
      ++outcomes[found];
      ASSERT_EQ(found, expected) << "seed " << seed << ", frame " << i << ": "
                                 << fmt::format("{:02x}", fmt::join(packet, ""));
    }
  }
  const int all = listsOfAKind * framesOfAList;
  EXPECT_GT(outcomes[std::nullopt], all / 20) << "the generator has frames that meet nothing";
  EXPECT_LT(outcomes[std::nullopt], all / 2) << "and mostly frames that meet something";
  EXPECT_GT(outcomes.size(), 10u) << "early rules and late ones";
}

}  // namespace
