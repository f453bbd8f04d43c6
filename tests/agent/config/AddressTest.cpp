#include "Support.h"

namespace Config {
namespace {

TEST(Ipv4Address, StoresTheBitsThatAreCompared) {
  const struct {
    const char* why;
    const char* address;
    uint32_t value, mask;
  } table[] = {
      {"any compares nothing", "any", 0, 0},
      {"a host compares all", "host 255.0.0.1", 0xff000001, 0xffffffff},
      {"a prefix compares its front", "10.0.0.0/8", 0x0a000000, 0xff000000},
      {"bits behind a prefix are cleared", "10.1.2.3/9", 0x0a000000, 0xff800000},
      {"the empty prefix is any", "10.1.2.3/0", 0, 0},
      {"the full prefix is a host", "10.1.2.3/32", 0x0a010203, 0xffffffff},
      {"a wildcard is the inverse of the mask", "10.1.2.3 0.0.0.255", 0x0a010200, 0xffffff00},
      {"a wildcard's bits may be anywhere", "10.1.2.3 0.255.0.1", 0x0a000202, 0xff00fffe},
      {"a wildcard of no bits is a host", "10.1.2.3 0.0.0.0", 0x0a010203, 0xffffffff},
      {"a wildcard of all bits is any", "10.1.2.3 255.255.255.255", 0, 0},
  };
  for (const auto& row : table) {
    const auto source = ipRule(std::string("permit ip ") + row.address + " any").filter;
    EXPECT_EQ(source.source.value, row.value) << row.why;
    EXPECT_EQ(source.sourceMask.value, row.mask) << row.why;
    EXPECT_EQ(source.destinationMask.value, 0u) << row.why;
    const auto destination = ipRule(std::string("permit ip any ") + row.address).filter;
    EXPECT_EQ(destination.destination.value, row.value) << row.why;
    EXPECT_EQ(destination.destinationMask.value, row.mask) << row.why;
  }
}

TEST(Ipv6Address, StoresTheBitsThatAreCompared) {
  constexpr uint64_t all = ~uint64_t{0};
  const struct {
    const char* why;
    const char* address;
    Nimnet::Ip6Addr value, mask;
  } table[] = {
      {"any compares nothing", "any", {0, 0}, {0, 0}},
      {"a host compares all", "host 2001:db8::1", {0x20010db800000000, 1}, {all, all}},
      {"a short prefix", "2001:db8:ffff::/32", {0x20010db800000000, 0}, {0xffffffff00000000, 0}},
      {"a prefix of the first half", "2001:db8::1/64", {0x20010db800000000, 0}, {all, 0}},
      {"a prefix one bit beyond the half",
       "2001:db8::8000:0:0:1/65",
       {0x20010db800000000, 0x8000000000000000},
       {all, 0x8000000000000000}},
      {"the empty prefix is any", "2001:db8::/0", {0, 0}, {0, 0}},
      {"the full prefix is a host", "::1/128", {0, 1}, {all, all}},
      {"a prefix of 127", "::3/127", {0, 2}, {all, all - 1}},
      {"a wildcard's bits may be anywhere",
       "2001:db8::1234 ffff::ff",
       {0x00000db800000000, 0x1200},
       {0x0000ffffffffffff, ~uint64_t{0xff}}},
      {"an embedded IPv4 address", "host ::ffff:192.0.2.1", {0, 0xffffc0000201}, {all, all}},
  };
  for (const auto& row : table) {
    const auto source = ip6Rule(std::string("permit ipv6 ") + row.address + " any").filter;
    EXPECT_EQ(source.source, row.value) << row.why;
    EXPECT_EQ(source.sourceMask, row.mask) << row.why;
    const auto destination = ip6Rule(std::string("permit ipv6 any ") + row.address).filter;
    EXPECT_EQ(destination.destination, row.value) << row.why;
    EXPECT_EQ(destination.destinationMask, row.mask) << row.why;
  }
}

TEST(Ipv4Address, EqualConditionsAreEqualValues) {
  const auto prefix = ipRule("permit ip 192.0.2.0/24 any");
  EXPECT_TRUE(prefix.isSameRule(ipRule("permit ip 192.0.2.99 0.0.0.255 any")))
      << "another spelling of a rule is the same rule";
  EXPECT_TRUE(prefix.isSameRule(ipRule("permit ip 192.0.2.7/24 0.0.0.0/0"))) << "host bits are not compared";
  EXPECT_FALSE(prefix.isSameRule(ipRule("permit ip 192.0.2.0/25 any"))) << "a longer prefix is another rule";
}

}  // namespace
}  // namespace Config
