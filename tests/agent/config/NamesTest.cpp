#include "Support.h"

#include <agent/config/Names.h>

#include <map>

namespace Config {
namespace {

TEST(Names, OfProtocolsAreTheAssignedNumbers) {
  const std::pair<const char*, int> table[] = {
      {"icmp", 1}, {"igmp", 2},   {"tcp", 6},   {"udp", 17},  {"gre", 47},   {"esp", 50},    {"ah", 51},
      {"ahp", 51}, {"eigrp", 88}, {"ospf", 89}, {"pim", 103}, {"vrrp", 112}, {"icmpv6", 58}, {"sctp", 132},
  };
  for (const auto& [name, number] : table) EXPECT_EQ(protocolNumber(name), number) << name;
  EXPECT_FALSE(protocolNumber("ip")) << "ip stands for any protocol";
  EXPECT_FALSE(protocolNumber("TCP")) << "names are lower case";
  EXPECT_FALSE(protocolNumber(""));
}

TEST(Names, OfPortsBelongToTheirProtocols) {
  const struct {
    const char* name;
    int tcp, udp, sctp;
  } table[] = {
      {"domain", 53, 53, -1},       {"ntp", 123, 123, -1},   {"ssh", 22, -1, 22},
      {"telnet", 23, -1, -1},       {"www", 80, 80, 80},     {"https", 443, 443, 443},
      {"smtp", 25, -1, -1},         {"bgp", 179, -1, 179},   {"snmp", 161, 161, -1},
      {"bootps", -1, 67, -1},       {"bootpc", -1, 68, -1},  {"microsoft-ds", 445, 445, -1},
      {"shell", 514, -1, -1},       {"syslog", -1, 514, -1}, {"m3ua", -1, -1, 2905},
      {"diameter", 3868, -1, 3868}, {"bfd", -1, 3784, -1},   {"bfd-echo", -1, 3785, -1},
      {"no-such", -1, -1, -1},      {"", -1, -1, -1},
  };
  const auto number = [](const char* name, uint8_t protocol) -> int {
    const auto port = portNumber(name, protocol);
    return port ? *port : -1;
  };
  for (const auto& row : table) {
    EXPECT_EQ(number(row.name, 6), row.tcp) << row.name;
    EXPECT_EQ(number(row.name, 17), row.udp) << row.name;
    EXPECT_EQ(number(row.name, 132), row.sctp) << row.name;
    EXPECT_EQ(number(row.name, 47), -1) << row.name << ": other protocols have no ports";
  }
}

TEST(Names, OfDscpsFollowTheirPatterns) {
  for (int c = 0; c <= 7; ++c)
    EXPECT_EQ(dscpNumber("cs" + std::to_string(c)), c * 8) << "class selectors, RFC 2474";
  for (int c = 1; c <= 4; ++c) {
    for (int drop = 1; drop <= 3; ++drop) {
      EXPECT_EQ(dscpNumber("af" + std::to_string(c * 10 + drop)), c * 8 + drop * 2)
          << "assured forwarding, RFC 2597";
    }
  }
  EXPECT_EQ(dscpNumber("ef"), 46) << "expedited forwarding, RFC 3246";
  EXPECT_EQ(dscpNumber("va"), 44) << "voice admit, RFC 5865";
  EXPECT_EQ(dscpNumber("le"), 1) << "lower effort, RFC 8622";
  EXPECT_EQ(dscpNumber("default"), 0);
  EXPECT_FALSE(dscpNumber("af14")) << "there are three drop precedences";
}

TEST(Names, OfIcmpMessagesAreUniqueAndDiffer) {
  const struct {
    const char* name;
    int type4, code4, type6, code6;
  } table[] = {
      {"echo", 8, -1, 128, -1},
      {"echo-reply", 0, -1, 129, -1},
      {"unreachable", 3, -1, 1, -1},
      {"host-unreachable", 3, 1, -1, -1},
      {"port-unreachable", 3, 3, 1, 4},
      {"administratively-prohibited", 3, 13, 1, 1},
      {"packet-too-big", 3, 4, 2, -1},
      {"redirect", 5, -1, 137, -1},
      {"time-exceeded", 11, -1, 3, -1},
      {"ttl-exceeded", 11, 0, -1, -1},
      {"reassembly-timeout", 11, 1, 3, 1},
      {"parameter-problem", 12, -1, 4, -1},
      {"router-advertisement", 9, -1, 134, -1},
      {"neighbor-solicitation", -1, -1, 135, -1},
      {"mld-query", -1, -1, 130, -1},
      {"mldv2", -1, -1, 143, -1},
  };
  const auto expect = [](const char* name, uint8_t protocol, int type, int code) {
    const auto* message = icmpMessage(name, protocol);
    ASSERT_EQ(message != nullptr, type >= 0) << name;
    if (!message) return;
    EXPECT_EQ(message->type, type) << name;
    EXPECT_EQ(message->code, code) << name;
  };
  for (const auto& row : table) {
    expect(row.name, protocolIcmp, row.type4, row.code4);
    expect(row.name, protocolIcmpV6, row.type6, row.code6);
  }
  for (const uint8_t protocol : {protocolIcmp, protocolIcmpV6}) {
    std::map<std::string_view, int> seen;
    for (const auto& message : icmpMessages(protocol)) EXPECT_EQ(++seen[message.name], 1) << message.name;
  }
  EXPECT_EQ(icmpMessage("echo", protocolTcp), nullptr) << "other protocols have no messages";
}

TEST(Names, OfEtherTypes) {
  const std::pair<const char*, int> table[] = {{"ip", 0x0800},   {"ipv6", 0x86dd}, {"arp", 0x0806},
                                               {"lldp", 0x88cc}, {"mpls", 0x8847}, {"eapol", 0x888e}};
  for (const auto& [name, number] : table) EXPECT_EQ(etherTypeNumber(name), number) << name;
  EXPECT_FALSE(etherTypeNumber("any"));
}

}  // namespace
}  // namespace Config
