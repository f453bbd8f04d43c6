#include "../support/UncheckedMpls.h"
#include "MatchSupport.h"

#include <stdexcept>

namespace {

using namespace TestSupport;
using namespace Acl;
using F = MacFilter;

constexpr const char* a = "02:00:5e:00:00:01";
constexpr const char* b = "02:00:5e:00:00:02";
const Nimnet::EthAddr all = mac("ff:ff:ff:ff:ff:ff");

Bytes arp() { return frame().eth(a, b).arp("192.0.2.1", "192.0.2.2"); }
Bytes tagged(uint16_t id) { return frame().eth(a, b).vlan(id).ip4("192.0.2.1", "192.0.2.2").tcp(1, 2); }

TEST(MatchMac, Addresses) {
  checkFilters<MacRule>({
      {"an empty filter matches every frame", [](F&) {}, arp(), true},
      {"a source", [](F& f) { f.source = mac(a), f.sourceMask = all; }, arp(), true},
      {"another", [](F& f) { f.source = mac(b), f.sourceMask = all; }, arp(), false},
      {"a destination", [](F& f) { f.destination = mac(b), f.destinationMask = all; }, arp(), true},
      {"not the source", [](F& f) { f.destination = mac(a), f.destinationMask = all; }, arp(), false},
      {"an organisation",
       [](F& f) { f.source = mac("02:00:5e:ff:ff:ff"), f.sourceMask = mac("ff:ff:ff:00:00:00"); }, arp(),
       true},
      {"the group bit alone",
       [](F& f) { f.destination = mac("01:00:00:00:00:00"), f.destinationMask = f.destination; }, arp(),
       false},
      {"of a broadcast",
       [](F& f) { f.destination = mac("01:00:00:00:00:00"), f.destinationMask = f.destination; },
       frame().eth(a, "ff:ff:ff:ff:ff:ff").arp("192.0.2.1", "192.0.2.2"), true},
      {"the last bit counts",
       [](F& f) { f.source = mac("00:00:00:00:00:00"), f.sourceMask = mac("00:00:00:00:00:01"); }, arp(),
       false},
  });
}

TEST(MatchMac, TypeBehindTheTagsAndVlan) {
  checkFilters<MacRule>({
      {"arp", [](F& f) { f.etherTypeNamed = true, f.etherType = 0x0806; }, arp(), true},
      {"not ip", [](F& f) { f.etherTypeNamed = true, f.etherType = 0x0800; }, arp(), false},
      {"of a tagged frame the type behind the tag",
       [](F& f) { f.etherTypeNamed = true, f.etherType = 0x0800; }, tagged(5), true},
      {"not the tag's own", [](F& f) { f.etherTypeNamed = true, f.etherType = 0x8100; }, tagged(5), false},
      {"unnamed asks nothing", [](F& f) { f.etherType = 0x0800; }, arp(), true},
      {"vlan",
       [](F& f) {
         f.vlan = {true, 200, 0};
       },
       tagged(200), true},
      {"another",
       [](F& f) {
         f.vlan = {true, 200, 0};
       },
       tagged(201), false},
      {"under a wildcard",
       [](F& f) {
         f.vlan = {true, 200, 0x00f};
       },
       tagged(207), true},
      {"0 is untagged",
       [](F& f) {
         f.vlan = {true, 0, 0};
       },
       arp(), true},
      {"and not tagged",
       [](F& f) {
         f.vlan = {true, 0, 0};
       },
       tagged(1), false},
  });
}

TEST(MatchMac, LabelsAreNotLookedAtSoARuleThatAsksForOneDoesNotMatch) {
  const Bytes mpls = frame().eth(a, b).mpls(16).ip4("192.0.2.1", "192.0.2.2").tcp(1, 2);
  checkFilters<MacRule>({
      {"a label", [](F& f) { f.mplsLabelIs(16); }, mpls, false},
      {"an inner label", [](F& f) { f.mplsInnerLabelIs(16); }, mpls, false},
      {"the type alone", [](F& f) { f.etherTypeNamed = true, f.etherType = 0x8847; }, mpls, true},
  });
}

TEST(MatchMac, ALabelOutOfRangeIsTheCallersToCheck) {
  MacRule rule;
  rule.sequence = 5;
  rule.filter.mpls = UncheckedMpls::of({.label = 0x100000});
  const auto list = listOf<MacRule>({rule});
  MacRuleConfig matched;
  Kiv::UniqueId id = Kiv::UniqueId::unset();
  ASSERT_TRUE(matchRule(ParsedFrame(arp()), list, &matched, &id));
  EXPECT_THROW(matched.filter().mpls.check(), std::range_error);
}

TEST(MatchMac, TheFirstMatchInOrderDecides) {
  MacRule first, second, third;
  first.sequence = 10, first.filter.etherTypeNamed = true, first.filter.etherType = 0x0800;
  second.sequence = 20, second.filter.source = mac(a), second.filter.sourceMask = all;
  third.sequence = 30;
  const auto list = listOf<MacRule>({third, second, first});
  EXPECT_EQ(hit<MacRule>(tagged(5), list), 10u);
  EXPECT_EQ(hit<MacRule>(arp(), list), 20u);
  EXPECT_EQ(hit<MacRule>(frame().eth(b, a).arp("192.0.2.1", "192.0.2.2"), list), 30u);
}

}  // namespace
