#include "Support.h"

namespace Models {
namespace {

std::string withRule(std::string_view type, std::string_view fields, std::string_view more = "") {
  return fmt::format(
      "{{\"ACL_TABLE\": {{\"T\": {{\"type\": \"{}\", \"ports\": [\"Ethernet0\"]}}}},\n\"ACL_RULE\": "
      "{{{}\n\"T|RULE_10\": {{\"PRIORITY\": \"9\", {}}}}}}}",
      type, more, fields);
}

/// The rules of the list of a document, a line each.
std::string rulesOf(const std::string& document) {
  const auto text = readAs(document);
  if (text.starts_with("t:")) return text;
  const size_t begin = text.find('\n') + 1;
  return text.substr(begin, text.find("interface") - begin);
}

constexpr const char* rest = "   20 permit ip any any\n";
constexpr const char* rest6 = "   20 permit ipv6 any any\n";

TEST(Sonic, CarriesEveryConditionOver) {
  constexpr const char* forward = R"("PACKET_ACTION": "FORWARD")";
  const struct {
    const char* why;
    const char* type;
    const char* fields;
    const char* result;
  } table[] = {
      {"addresses", "L3", R"("SRC_IP": "10.0.0.0/8", "DST_IP": "192.0.2.1/32")",
       "permit ip 10.0.0.0/8 192.0.2.1/32"},
      {"addresses of IPv6", "L3V6", R"("SRC_IPV6": "2001:db8::/32", "DST_IPV6": "::1/128")",
       "permit ipv6 2001:db8::/32 ::1/128"},
      {"a protocol", "L3", R"("IP_PROTOCOL": "126")", "permit 126 any any"},
      {"a next header", "L3V6", R"("NEXT_HEADER": "47")", "permit gre any any"},
      {"ports", "L3", R"("IP_PROTOCOL": "17", "L4_SRC_PORT": "0", "L4_DST_PORT_RANGE": "8081-8090")",
       "permit udp any eq 0 any range 8081 8090"},
      {"flags", "L3", R"("IP_PROTOCOL": "6", "TCP_FLAGS": "0x12/0x12")", "permit tcp any any syn ack"},
      {"a message", "L3", R"("ICMP_TYPE": "3", "ICMP_CODE": "0")", "permit icmp any any 3 0"},
      {"a message of IPv6", "L3V6", R"("ICMPV6_TYPE": "128")", "permit icmpv6 any any 128"},
      {"DSCP and VLAN", "L3", R"("DSCP": "8", "VLAN_ID": "369")", "permit vlan 369 ip any any dscp 8"},
  };
  for (const auto& row : table) {
    EXPECT_EQ(rulesOf(withRule(row.type, fmt::format("{}, {}", row.fields, forward))),
              fmt::format("   10 {}\n{}", row.result, row.type == std::string("L3") ? rest : rest6))
        << row.why;
  }
  EXPECT_EQ(rulesOf(withRule("L3", R"("ETHER_TYPE": "2048", "PACKET_ACTION": "DROP")")),
            "   10 deny ip any any\n")
      << "of every packet: nothing is left to pass";
  EXPECT_EQ(rulesOf(withRule("L3V6", R"("IP_TYPE": "IPV6ANY", "PACKET_ACTION": "DROP")")),
            "   10 deny ipv6 any any\n");
}

TEST(Sonic, RefusesWhatARuleCannotSay) {
  constexpr const char* path = "/ACL_RULE/T|RULE_10";
  const struct {
    const char* why;
    const char* fields;
    const char* found;
    const char* expected;
  } table[] = {
      {"another action", R"("PACKET_ACTION": "REDIRECT:Ethernet4")",
       "\"REDIRECT:Ethernet4\" at PATH/PACKET_ACTION",
       "FORWARD or DROP: a rule does nothing else with a packet"},
      {"no action", R"("SRC_IP": "10.0.0.0/8")", "PATH incomplete", "what becomes of packets"},
      {"what would drop IPv6, too", R"("IP_PROTOCOL": "6", "PACKET_ACTION": "DROP")", "PATH incomplete",
       "an address, ETHER_TYPE or IP_TYPE: without them it would drop more than IPv4 packets"},
      {"another family", R"("ETHER_TYPE": "0x86dd", "PACKET_ACTION": "DROP")",
       "\"0x86dd\" at PATH/ETHER_TYPE", "\"0x0800\": a table of IPv4 rules sees no other packets"},
      {"ARP", R"("IP_TYPE": "ARP", "PACKET_ACTION": "DROP")", "\"ARP\" at PATH/IP_TYPE",
       "IPV4ANY: a table of IPv4 rules sees no other packets"},
      {"an address of another family", R"("SRC_IPV6": "::1/128", "PACKET_ACTION": "FORWARD")",
       "\"::1/128\" at PATH/SRC_IPV6", "no such address in a table of IPv4 rules"},
      {"ports of any protocol", R"("L4_SRC_PORT": "5", "PACKET_ACTION": "FORWARD")",
       "ports at PATH/L4_SRC_PORT",
       "a protocol that has ports (6, 17 or 132) beside them: a rule for any protocol has none"},
      {"a number that is none", R"("VLAN_ID": "nan", "PACKET_ACTION": "FORWARD")", "\"nan\" at PATH/VLAN_ID",
       "the text of a number from 1 to 4094"},
      {"no VLAN", R"("VLAN_ID": "0", "PACKET_ACTION": "FORWARD")", "\"0\" at PATH/VLAN_ID",
       "the text of a number from 1 to 4094"},
      {"too large a type", R"("ICMP_TYPE": "300", "PACKET_ACTION": "FORWARD")", "\"300\" at PATH/ICMP_TYPE",
       "the text of a number from 0 to 255"},
      {"a number where texts are", R"("DSCP": 8, "PACKET_ACTION": "FORWARD")", "8 at PATH/DSCP",
       "the text of a number from 0 to 63"},
      {"flags of UDP", R"("IP_PROTOCOL": "17", "TCP_FLAGS": "0x10/0x10", "PACKET_ACTION": "FORWARD")",
       "PATH incomplete", "IP_PROTOCOL 6 beside TCP_FLAGS"},
      {"a flag that is clear", R"("IP_PROTOCOL": "6", "TCP_FLAGS": "0x02/0x12", "PACKET_ACTION": "FORWARD")",
       "\"0x02/0x12\" at PATH/TCP_FLAGS",
       "the same flags and mask, FIN to URG: a rule can only ask that flags are set"},
      {"ports of the switch", R"("IN_PORTS": "Ethernet0", "PACKET_ACTION": "FORWARD")",
       "\"Ethernet0\" at PATH/IN_PORTS",
       "it left out: a rule cannot ask for a port: tables are bound to them"},
      {"a mirror", R"("MIRROR_INGRESS_ACTION": "s")", "\"s\" at PATH/MIRROR_INGRESS_ACTION",
       "it left out: packets are not mirrored into tunnels"},
      {"an unknown field", R"("SRC_IPV4": "10.0.0.0/8", "PACKET_ACTION": "FORWARD")",
       "the unknown PATH/SRC_IPV4", "a leaf that the model has (did you mean SRC_IPV6?)"},
  };
  for (const auto& row : table) {
    std::string expected = fmt::format("found {}, expected {}\n", row.found, row.expected);
    expected.replace(expected.find("PATH"), 4, path);
    const auto found = readAs(withRule("L3", row.fields));
    EXPECT_EQ(found.substr(std::min(found.find(" ") + 1, found.size())), expected) << row.why;
  }
}

TEST(Sonic, TriesTheHighestPriorityFirst) {
  constexpr const char* tcp = R"("IP_PROTOCOL": "6", "PACKET_ACTION": "FORWARD")";
  const auto with = [&](std::string_view other) { return rulesOf(withRule("L3", tcp, other)); };
  EXPECT_EQ(with(R"("T|RULE_20": {"PRIORITY": "8", "DST_IP": "10.0.0.0/8", "PACKET_ACTION": "DROP"},)"),
            "   10 permit tcp any any\n   20 deny ip any 10.0.0.0/8\n   30 permit ip any any\n");
  EXPECT_EQ(with(R"("T|RULE_20": {"PRIORITY": "10", "DST_IP": "10.0.0.0/8", "PACKET_ACTION": "DROP"},)"),
            "   remark 20\n   10 deny ip any 10.0.0.0/8\n   remark 10\n   20 permit tcp any any\n   30 "
            "permit ip any any\n");
  EXPECT_EQ(with(R"("T|DEFAULT_RULE": {"PRIORITY": "1", "ETHER_TYPE": "2048", "PACKET_ACTION": "DROP"},)"),
            "   10 permit tcp any any\n")
      << "what a list does by itself";
  EXPECT_EQ(with(R"("T|RULE_20": {"PRIORITY": "9", "DST_IP": "10.0.0.0/8", "PACKET_ACTION": "DROP"},)"),
            "t:3:1: found an object at /ACL_RULE/T|RULE_10, expected a PRIORITY that RULE_20 does not have, "
            "too: which is tried first is not said\n");
  EXPECT_EQ(with(R"("T|RULE_20": {"DST_IP": "10.0.0.0/8", "PACKET_ACTION": "DROP"},)"),
            "t:2:14: found /ACL_RULE/T|RULE_20 incomplete, expected its PRIORITY\n");
  EXPECT_EQ(
      with(R"("T|RULE_4294967295": {"PRIORITY": "8", "PACKET_ACTION": "FORWARD", "IP_PROTOCOL": "1"},)"),
      "   remark 10\n   10 permit tcp any any\n   remark 4294967295\n   20 permit icmp any any\n   30 permit "
      "ip any any\n")
      << "behind the number of the name there is no room for the rule that lets the rest pass";
}

TEST(Sonic, ReadsTablesInBothWays) {
  EXPECT_EQ(readAs(R"({"ACL_TABLE|T": {"type": "L3", "stage": "egress", "ports": "Ethernet0,Ethernet4"},
                       "ACL_RULE|T|R": {"PRIORITY": "1", "PACKET_ACTION": "FORWARD"}})"),
            "ip access-list T\n   remark R\n   10 permit ip any any\ninterface Ethernet0\n   ip access-group "
            "T out\ninterface Ethernet4\n   ip access-group T out\n");
  EXPECT_EQ(readAs(R"({"ACL_TABLE": {"T": {"type": "L3V6", "ports": []}}})"),
            "ipv6 access-list T\n   10 permit ipv6 any any\n")
      << "a table without rules lets everything pass";
  EXPECT_EQ(readAs(R"({"ACL_RULE": {"T|R": {}}})"),
            "t:1:15: found /ACL_RULE/T|R incomplete, expected its table in ACL_TABLE, which says of which "
            "kind and where it is\n");
  EXPECT_EQ(readAs(R"({"ACL_TABLE": {"T": {"type": "MIRROR"}}})"),
            "t:1:22: found \"MIRROR\" at /ACL_TABLE/T/type, expected L3 or L3V6: a list looks at one kind of "
            "header, and filters what is forwarded\n");
  EXPECT_EQ(
      readAs(R"({"ACL_TABLE": {"T": {"type": "L3", "ports": ["e"]}, "U": {"type": "L3", "ports": ["e"]}}})"),
      "t:1:73: found an array at /ACL_TABLE/U/ports, expected one ip list in interface e: a second one "
      "cannot be bound\n");
  EXPECT_EQ(
      readAs(R"({"ACL_TABLE": {}, "ACL_TABLE_TYPE": {}})"),
      "t:1:19: found an object at /ACL_TABLE_TYPE, expected no such table: lists cannot do what it is for\n");
  EXPECT_EQ(
      readAs(R"({"ACL_TABLE": {"T:1": {"type": "L3", "ports": ["e:1"]}}, "ACL_RULE|T:1|R:2":
                       {"PRIORITY": "1", "PACKET_ACTION": "FORWARD"}})"),
      "ip access-list T:1\n   remark R:2\n   10 permit ip any any\ninterface e:1\n   ip access-group T:1 "
      "in\n")
      << "keys have no modules";
  EXPECT_NE(readAs(withRule("L3V6", R"("NEXT_HEADER": "44", "PACKET_ACTION": "FORWARD")"))
                .find("expected no extension header: a rule looks at the protocol behind them"),
            std::string::npos);
  EXPECT_EQ(rulesOf(withRule("L3", R"("IP_PROTOCOL": "44", "PACKET_ACTION": "FORWARD")")),
            fmt::format("   10 permit 44 any any\n{}", rest));
  EXPECT_EQ(readAs(R"({"ACL_TABLE|T|U": {"type": "L3"}})"),
            "t:1:2: found an object at /ACL_TABLE|T|U, expected the name of a table behind ACL_TABLE, and no "
            "further key\n");
  EXPECT_EQ(readAs(R"({"ACL_TABLE|T": {"type": "L3"}, "ACL_RULE|T|R|x": {}})"),
            "t:1:33: found an object at /ACL_RULE|T|R|x, expected the names of a table and a rule behind "
            "ACL_RULE, and no further key\n");
  for (const char* twice :
       {R"("TYPE": "L3V6")", R"("STAGE": "egress")", R"("PORTS": [])", R"("ports@": "")"}) {
    const auto result = readAs(fmt::format(
        R"({{"ACL_TABLE": {{"T": {{"type": "L3", "stage": "ingress", "ports": ["e"], {}}}}}}})", twice));
    EXPECT_NE(result.find("a second time, expected it once"), std::string::npos) << twice << "\n" << result;
  }
  EXPECT_EQ(
      readAs(R"({"ACL_TABLE": {}, "sonic-acl:ACL_RULE": {}})"),
      "t:1:19: found an object at /sonic-acl:ACL_RULE, expected no such table: lists cannot do what it is for\n");
  EXPECT_EQ(warningsOf(R"({"ACL_TABLE": {"T": {"type": "L3", "policy_desc": "x"}}, "PORT": {}})"),
            "1:58 leaf-ignored /PORT is not kept: no access list is in it\n1:36 leaf-ignored "
            "/ACL_TABLE/T/policy_desc is not kept: it has no effect on traffic\n");
}

}  // namespace
}  // namespace Models
