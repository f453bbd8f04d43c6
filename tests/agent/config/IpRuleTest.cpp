#include "Support.h"

namespace Config {
namespace {

using Acl::Compare;
using Acl::IpFilterBase;

struct FilterRow {
  const char* why;
  const char* rule;
  void (*expect)(IpFilterBase&);
};

/// Addresses are `any` throughout: the filter's common part is what these tables are about.
template <class Rule>
void expectFilter(const FilterRow& row, const Rule& rule) {
  typename Rule::FilterType expected;
  row.expect(expected);
  EXPECT_EQ(static_cast<const IpFilterBase&>(rule.filter), static_cast<const IpFilterBase&>(expected))
      << row.why << ": " << row.rule;
}

void tcp(IpFilterBase& f) { f.protocolNamed = true, f.protocol = 6; }
void icmpIs(IpFilterBase& f, uint8_t protocol, uint8_t type) {
  f.protocolNamed = f.icmpTypeNamed = true, f.protocol = protocol, f.icmpType = type;
}
void icmpIs(IpFilterBase& f, uint8_t protocol, uint8_t type, uint8_t code) {
  icmpIs(f, protocol, type), f.icmpCodeNamed = true, f.icmpCode = code;
}
void classIs(IpFilterBase& f, uint8_t value, uint8_t mask) {
  f.trafficClass = value, f.trafficClassMask = mask;
}

TEST(IpRule, ReadsWhatBothKindsOfListShare) {
  const FilterRow table[] = {
      {"tcp by name", "permit tcp any any", tcp},
      {"tcp by number is the same protocol", "permit 6 any any", tcp},
      {"0 is a protocol, not any protocol", "permit 0 any any", [](auto& f) { f.protocolNamed = true; }},
      {"the highest protocol", "permit 255 any any",
       [](auto& f) { f.protocolNamed = true, f.protocol = 255; }},
      {"another well-known protocol", "permit ospf any any",
       [](auto& f) { f.protocolNamed = true, f.protocol = 89; }},
      {"a source port", "permit tcp any eq 80 any",
       [](auto& f) {
         tcp(f), f.sourcePort = {Compare::eq, 1, {80}};
       }},
      {"a destination port by name", "permit tcp any any eq telnet",
       [](auto& f) {
         tcp(f), f.destinationPort = {Compare::eq, 1, {23}};
       }},
      {"both ports", "permit tcp any gt 1023 any lt 1024",
       [](auto& f) {
         tcp(f), f.sourcePort = {Compare::gt, 1, {1023}}, f.destinationPort = {Compare::lt, 1, {1024}};
       }},
      {"a protocol number has ports, too", "permit 17 any range 1 65535 any neq ntp domain",
       [](auto& f) {
         f.protocolNamed = true, f.protocol = 17;
         f.sourcePort = {Compare::range, 2, {1, 65535}}, f.destinationPort = {Compare::neq, 2, {53, 123}};
       }},
      {"ports of sctp", "permit sctp any any eq m3ua",
       [](auto& f) {
         f.protocolNamed = true, f.protocol = 132, f.destinationPort = {Compare::eq, 1, {2905}};
       }},
      {"a range of one port", "permit tcp any any range 0 0",
       [](auto& f) {
         tcp(f), f.destinationPort = {Compare::range, 2, {0, 0}};
       }},
      {"ten ports are allowed", "permit tcp any eq 1 2 3 4 5 6 7 8 9 10 any",
       [](auto& f) {
         tcp(f), f.sourcePort = {Compare::eq, 10, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}};
       }},
      {"a set of ports is one value however it was typed", "permit tcp any any eq 443 80 https 80",
       [](auto& f) {
         tcp(f), f.destinationPort = {Compare::eq, 2, {80, 443}};
       }},
      {"a port list ends where qualifiers begin", "permit tcp any any eq 80 syn",
       [](auto& f) {
         tcp(f), f.destinationPort = {Compare::eq, 1, {80}}, f.tcpFlags = 2;
       }},
      {"established", "permit tcp any any established", [](auto& f) { tcp(f), f.established = true; }},
      {"each flag has its bit, in any order", "permit tcp any any urg ack psh rst syn fin",
       [](auto& f) { tcp(f), f.tcpFlags = 0x3f; }},
      {"ack alone", "permit tcp any any ack", [](auto& f) { tcp(f), f.tcpFlags = 0x10; }},
      {"a DSCP compares its six bits", "permit udp any any dscp ef",
       [](auto& f) { f.protocolNamed = true, f.protocol = 17, classIs(f, 0xb8, 0xfc); }},
      {"a DSCP number with a mask: bits not compared are cleared", "permit tcp any any dscp 63 0x30",
       [](auto& f) { tcp(f), classIs(f, 0xc0, 0xc0); }},
      {"a DSCP may be typed in hexadecimal", "permit tcp any any dscp 0x2e 0x3f",
       [](auto& f) { tcp(f), classIs(f, 0xb8, 0xfc); }},
      {"DSCP 0 is compared", "permit tcp any any dscp default", [](auto& f) { tcp(f), classIs(f, 0, 0xfc); }},
      {"a mask without bits compares nothing", "permit tcp any any dscp 63 0x0", tcp},
      {"non-first fragments", "permit tcp any any fragments", [](auto& f) { tcp(f), f.fragments = true; }},
      {"the outer tag's id", "permit vlan 100 tcp any any",
       [](auto& f) {
         tcp(f), f.vlan = {true, 100, 0};
       }},
      {"id 0 is a condition", "permit vlan 0 tcp any any",
       [](auto& f) {
         tcp(f), f.vlan = {true, 0, 0};
       }},
      {"bits that a VLAN wildcard ignores are cleared", "permit vlan 207 0x00f tcp any any",
       [](auto& f) {
         tcp(f), f.vlan = {true, 192, 15};
       }},
      {"a VLAN wildcard of all bits is no condition", "permit vlan 5 0xfff tcp any any", tcp},
  };
  for (const auto& row : table) {
    expectFilter(row, ipRule(row.rule));
    expectFilter(row, ip6Rule(row.rule));
  }
}

TEST(IpRule, ReadsWhatIsOfIpv4Only) {
  const FilterRow table[] = {
      {"ip is any protocol", "permit ip any any", [](auto&) {}},
      {"an ICMP message without a code", "permit icmp any any echo", [](auto& f) { icmpIs(f, 1, 8); }},
      {"an ICMP message whose name has a code", "permit icmp any any host-unreachable",
       [](auto& f) { icmpIs(f, 1, 3, 1); }},
      {"a code of 0 is compared", "permit icmp any any ttl-exceeded", [](auto& f) { icmpIs(f, 1, 11, 0); }},
      {"an ICMP type by number", "permit icmp any any 5", [](auto& f) { icmpIs(f, 1, 5); }},
      {"an ICMP type and code by number", "permit 1 any any 5 2", [](auto& f) { icmpIs(f, 1, 5, 2); }},
      {"icmpv6 is a protocol like others here", "permit icmpv6 any any",
       [](auto& f) { f.protocolNamed = true, f.protocol = 58; }},
      {"time to live", "permit ip any any ttl eq 255",
       [](auto& f) {
         f.hops = {Compare::eq, 255};
       }},
      {"qualifiers in any order", "permit icmp any any echo ttl neq 0 dscp af11",
       [](auto& f) {
         icmpIs(f, 1, 8), f.hops = {Compare::neq, 0}, classIs(f, 40, 0xfc);
       }},
      {"qualifiers in the other order", "permit icmp any any echo dscp 10 ttl neq 0",
       [](auto& f) {
         icmpIs(f, 1, 8), f.hops = {Compare::neq, 0}, classIs(f, 40, 0xfc);
       }},
  };
  for (const auto& row : table) expectFilter(row, ipRule(row.rule));
}

TEST(IpRule, ReadsWhatIsOfIpv6Only) {
  const FilterRow table[] = {
      {"ipv6 is any protocol", "permit ipv6 any any", [](auto&) {}},
      {"an ICMPv6 message", "permit icmpv6 any any packet-too-big", [](auto& f) { icmpIs(f, 58, 2); }},
      {"the same name has another type in ICMPv6", "permit 58 any any echo-reply",
       [](auto& f) { icmpIs(f, 58, 129); }},
      {"an ICMPv6 message whose name has a code", "permit icmpv6 any any port-unreachable",
       [](auto& f) { icmpIs(f, 58, 1, 4); }},
      {"icmp is a protocol like others here", "permit icmp any any",
       [](auto& f) { f.protocolNamed = true, f.protocol = 1; }},
      {"a traffic class compares its eight bits", "permit ipv6 any any traffic-class 0x20",
       [](auto& f) { classIs(f, 0x20, 0xff); }},
      {"a traffic class in decimal with a mask", "permit ipv6 any any traffic-class 255 0xf0",
       [](auto& f) { classIs(f, 0xf0, 0xf0); }},
      {"hop limit", "permit ipv6 any any hop-limit gt 1",
       [](auto& f) {
         f.hops = {Compare::gt, 1};
       }},
      {"hop limit the other way", "permit ipv6 any any hop-limit lt 64 traffic-class 0 0x03",
       [](auto& f) {
         f.hops = {Compare::lt, 64}, classIs(f, 0, 3);
       }},
  };
  for (const auto& row : table) expectFilter(row, ip6Rule(row.rule));
}

TEST(IpRule, ReadsActionLogAndMirroring) {
  const struct {
    const char* why;
    const char* rule;
    Acl::Action action;
    bool log;
    const char* session;
  } table[] = {
      {"a plain permit", "permit ip any any", Acl::Action::permit, false, ""},
      {"a plain deny", "deny ip any any", Acl::Action::deny, false, ""},
      {"log is kept", "deny ip any any log", Acl::Action::deny, true, ""},
      {"mirroring names its session", "permit ip any any mirror session W", Acl::Action::permit, false, "W"},
      {"log and mirroring", "deny tcp any any syn log mirror session log", Acl::Action::deny, true, "log"},
  };
  for (const auto& row : table) {
    const auto rule = ipRule(row.rule);
    EXPECT_EQ(rule.action, row.action) << row.why;
    EXPECT_EQ(rule.log, row.log) << row.why;
    EXPECT_EQ(rule.mirrorSession.view(), row.session) << row.why;
    EXPECT_EQ(rule.text.view(), row.rule) << row.why;
  }
}

TEST(IpRule, KeepsItsTextAsTypedWithSingleBlanksAndWithoutTheNumber) {
  const struct {
    const char* why;
    const char* rule;
    const char* text;
  } table[] = {
      {"without a number all of it", "permit ip any any", "permit ip any any"},
      {"the number is left out", "10 permit ip any any", "permit ip any any"},
      {"blanks and tabs become one blank", " \t7\tdeny   tcp any\t\tany eq  80  ", "deny tcp any any eq 80"},
      {"numbers and addresses stay as they were typed", "permit 6 192.0.2.77/24 any eq http 80 dscp 0x2e",
       "permit 6 192.0.2.77/24 any eq http 80 dscp 0x2e"},
  };
  for (const auto& row : table) EXPECT_EQ(ipRule(row.rule).text.view(), row.text) << row.why;
}

TEST(IpRule, StandardListsTakeASourceOnly) {
  const struct {
    const char* why;
    const char* rule;
    uint32_t source, mask;
    bool log;
  } table[] = {
      {"any source", "permit any", 0, 0, false},
      {"one host", "deny host 192.0.2.1", 0xc0000201, 0xffffffff, false},
      {"a prefix", "permit 192.0.2.1/24", 0xc0000200, 0xffffff00, false},
      {"a wildcard", "permit 192.0.2.1 0.0.255.0", 0xc0000001, 0xffff00ff, false},
      {"a number in front and log behind", "7 permit any log", 0, 0, true},
  };
  for (const auto& row : table) {
    const auto rule = ruleOf<Acl::IpRule>("ip access-list standard A", row.rule);
    Acl::IpFilter expected;
    expected.source.value = row.source;
    expected.sourceMask.value = row.mask;
    EXPECT_EQ(rule.filter, expected) << row.why;
    EXPECT_EQ(rule.log, row.log) << row.why;
  }
}

}  // namespace
}  // namespace Config
