#include "MatchSupport.h"
#include "ReferenceMatcher.h"

#include <array>
#include <random>

// The matchers against the reference, on lists and frames that are made from a few addresses, ports and
// values, so that rules overlap with each other and with the packets.

namespace {

using namespace TestSupport;
using namespace Acl;

constexpr int listsOfAKind = 4000;
constexpr int framesOfAList = 50;

class Dice {
 public:
  explicit Dice(uint32_t seed) : random_(seed) {}
  uint32_t below(uint32_t bound) { return random_() % bound; }
  bool once(uint32_t in) { return below(in) == 0; }
  template <class T, size_t N>
  T of(const T (&values)[N]) {
    return values[below(N)];
  }

 private:
  std::mt19937 random_;
};

constexpr const char* addresses4[] = {"192.0.2.1", "192.0.2.2", "192.0.2.130", "198.51.100.7", "0.0.0.0"};
constexpr const char* masks4[] = {"255.255.255.255", "255.255.255.0", "255.255.255.128", "0.0.0.1",
                                  "240.0.0.2"};
constexpr const char* addresses6[] = {"2001:db8::1", "2001:db8::2", "2001:db8:0:1::1", "fe80::1", "::"};
constexpr const char* masks6[] = {"ffff:ffff::", "ffff:ffff:ffff:ffff::", "::1", "8000::2",
                                  "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"};
constexpr const char* macs[] = {"02:00:5e:00:00:01", "02:00:5e:00:00:02", "02:00:5e:00:01:01",
                                "ff:ff:ff:ff:ff:ff"};
constexpr const char* macMasks[] = {"ff:ff:ff:ff:ff:ff", "ff:ff:ff:00:00:00", "00:00:00:00:00:01",
                                    "01:00:00:00:00:00"};
constexpr uint16_t ports[] = {0, 22, 53, 80, 81, 443, 1023, 1024, 65535};
constexpr uint8_t hops[] = {0, 1, 63, 64, 255};
constexpr uint8_t classes[] = {0, 0x20, 46 << 2, 0x2f, 0xff};
constexpr uint16_t vlans[] = {0, 1, 100, 101, 4095};
constexpr uint8_t protocols[] = {6, 17, 1, 58, 132, 99};

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

FrameBuilder someLink(Dice& dice) {
  FrameBuilder made = frame().eth(dice.of(macs), dice.of(macs));
  for (uint32_t tags = dice.below(3); tags > 0; --tags)
    made.vlan(dice.of(vlans), dice.once(2) ? 0x88a8 : 0x8100);
  return made;
}

Bytes someL4(Dice& dice, FrameBuilder made, bool six) {
  switch (dice.of(protocols)) {
    case 6:
      return made.tcp(dice.of(ports), dice.of(ports)).flags(static_cast<uint8_t>(dice.below(256)));
    case 17:
      return made.udp(dice.of(ports), dice.of(ports));
    case 132:
      return made.sctp(dice.of(ports), dice.of(ports));
    case 1:
      return made.icmp(static_cast<uint8_t>(dice.below(4)), static_cast<uint8_t>(dice.below(3)));
    case 58:
      return made.icmp6(static_cast<uint8_t>(dice.below(4)), static_cast<uint8_t>(dice.below(3)));
    default:
      return made.protocol(six && dice.once(3) ? 59 : 99).payload(24, 0x11);
  }
}

Bytes someFrame(Dice& dice, const IpRuleConfig&) {
  FrameBuilder made = someLink(dice).ip4(dice.of(addresses4), dice.of(addresses4));
  made.tos(dice.of(classes)).ttl(dice.of(hops));
  if (dice.once(4)) made.options({1, 1, 1, 1, 1, 1, 1, 1});
  if (dice.once(5)) {
    return made.fragment(static_cast<uint16_t>(2 + dice.below(50)), dice.once(2))
        .protocol(dice.of(protocols))
        .payload(40, 0x50);
  }
  if (dice.once(5)) made.fragment(0, true);
  return someL4(dice, made, false);
}

Bytes someFrame(Dice& dice, const Ip6RuleConfig&) {
  FrameBuilder made = someLink(dice).ip6(dice.of(addresses6), dice.of(addresses6));
  made.trafficClass(dice.of(classes)).hopLimit(dice.of(hops));
  if (dice.once(4)) made.hopByHop(dice.once(2) ? 8 : 16);
  if (dice.once(4)) made.routing();
  if (dice.once(5)) {
    made.fragment(static_cast<uint16_t>(2 + dice.below(50)), dice.once(2));
    return made.protocol(dice.of(protocols)).payload(40, 0x50);
  }
  if (dice.once(5)) made.fragment(0, dice.once(2));
  if (dice.once(4)) made.destinationOptions();
  return someL4(dice, made, true);
}

Bytes someFrame(Dice& dice, const MacRuleConfig&) {
  if (dice.once(3)) return someFrame(dice, IpRuleConfig());
  if (dice.once(2)) return someFrame(dice, Ip6RuleConfig());
  return someLink(dice).arp("192.0.2.1", "192.0.2.2");
}

template <class Rule>
class MatchProperty : public testing::Test {};
struct KindName {
  template <class Rule>
  static std::string GetName(int) {
    return std::is_same_v<Rule, IpRuleConfig> ? "ip" : std::is_same_v<Rule, Ip6RuleConfig> ? "ipv6" : "mac";
  }
};
using Kinds = testing::Types<IpRuleConfig, Ip6RuleConfig, MacRuleConfig>;
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
