#include "Support.h"

namespace Config {
namespace {

TEST(MacRule, ReadsAddressesVlanAndEtherType) {
  constexpr uint64_t all = 0xffffffffffff;
  const struct {
    const char* why;
    const char* rule;
    uint64_t source, sourceMask, destination, destinationMask;
    Acl::VlanMatch vlan;
    int etherType;
  } table[] = {
      {"any to any", "permit any any", 0, 0, 0, 0, {}, -1},
      {"a host with colons", "deny host 02:00:5e:00:00:01 any", 0x02005e000001, all, 0, 0, {}, -1},
      {"a host with dots", "deny any host 0200.5e00.0001", 0, 0, 0x02005e000001, all, {}, -1},
      {"a wildcard's bits are ignored and cleared",
       "permit 02:00:5e:00:00:77 00:00:00:ff:ff:ff any 0x0806",
       0x02005e000000,
       0xffffff000000,
       0,
       0,
       {},
       0x0806},
      {"a wildcard with bits anywhere",
       "permit any 0200.5e00.0001 ff00.0000.0001",
       0,
       0,
       0x00005e000000,
       0x00fffffffffe,
       {},
       -1},
      {"an EtherType by name", "permit any any arp", 0, 0, 0, 0, {}, 0x0806},
      {"ip is the EtherType, not a protocol", "permit any any ip", 0, 0, 0, 0, {}, 0x0800},
      {"the lowest EtherType", "permit any any 0x0600", 0, 0, 0, 0, {}, 0x0600},
      {"the highest EtherType, in capital digits", "permit any any 0xFFFF", 0, 0, 0, 0, {}, 0xffff},
      {"a VLAN", "permit vlan 4095 any any", 0, 0, 0, 0, {true, 4095, 0}, -1},
      {"a VLAN with a wildcard", "deny vlan 200 0x00f any any ipv6", 0, 0, 0, 0, {true, 192, 15}, 0x86dd},
  };
  for (const auto& row : table) {
    const auto& filter = macRule(row.rule).filter;
    EXPECT_EQ(filter.source.value(), row.source) << row.why;
    EXPECT_EQ(filter.sourceMask.value(), row.sourceMask) << row.why;
    EXPECT_EQ(filter.destination.value(), row.destination) << row.why;
    EXPECT_EQ(filter.destinationMask.value(), row.destinationMask) << row.why;
    EXPECT_EQ(filter.vlan, row.vlan) << row.why;
    EXPECT_EQ(filter.etherTypeNamed, row.etherType >= 0) << row.why;
    EXPECT_EQ(filter.etherType, row.etherType < 0 ? 0 : row.etherType) << row.why;
    EXPECT_EQ(filter.mpls, Acl::MplsFilter()) << row.why;
  }
}

TEST(MacRule, ReadsLogAndMirroring) {
  const auto rule = macRule("5 deny any any ip log mirror session WATCH");
  EXPECT_EQ(rule.sequence, 5u);
  EXPECT_EQ(rule.action, Acl::Action::deny);
  EXPECT_TRUE(rule.log);
  EXPECT_EQ(rule.mirrorSession, "WATCH");
  EXPECT_EQ(rule.text, "deny any any ip log mirror session WATCH");
}

}  // namespace
}  // namespace Config
