#include "Support.h"

#include <agent/models/Writer.h>

namespace Models {
namespace {

Config::Model modelOf(const std::string& text) {
  auto result = Config::read({{"t", text}});
  EXPECT_TRUE(result.model) << (result.model ? "" : result.mistakes[0].str());
  return result.model.value_or(Config::Model());
}

/// What is said of a text that is written: a line for each thing that is refused, with "- " for what is left
/// out.
std::string saidOf(const std::string& text, Format format, bool lossy) {
  const auto written = write(modelOf(text), format, lossy);
  EXPECT_EQ(written.document.empty(), !written.refused.empty());
  std::string all;
  for (const auto& sentence : written.refused) all += sentence + "\n";
  for (const auto& sentence : written.leftOut) all += "- " + sentence + "\n";
  return all;
}

TEST(Writer, RefusesWhatAModelCannotSay) {
  const struct {
    const char* why;
    const char* head;
    const char* rule;
    const char* ietf;
    const char* openConfig;
    const char* sonic;
  } table[] = {
      {"nothing odd", "ip", "permit tcp any range 1 5 any eq 80", "", "", ""},
      {"VLAN", "ip", "permit vlan 7 ip any any", "a VLAN", "a VLAN", ""},
      {"VLAN with a wildcard", "ip", "permit vlan 7 0x008 ip any any", "a VLAN", "a VLAN",
       "other than one VLAN of 1 to 4094"},
      {"no VLAN", "ip", "permit vlan 0 ip any any", "a VLAN", "a VLAN", "other than one VLAN of 1 to 4094"},
      {"a wildcard", "ip", "permit ip 0.0.0.1 255.255.255.254 any", "addresses that are no prefix",
       "addresses that are no prefix", "addresses that are no prefix"},
      {"flags", "ip", "permit tcp any any syn", "TCP flags that are set, whatever others are", "", ""},
      {"established", "ip", "permit tcp any any established", "TCP flags that are set, whatever others are",
       "", "one of several TCP flags"},
      {"fragments", "ip", "permit ip any any fragments", "later fragments", "", "later fragments"},
      {"DSCP", "ip", "permit ip any any dscp 7", "", "", ""},
      {"a part of DSCP", "ip", "permit ip any any dscp 7 0x01", "a part of DSCP", "a part of DSCP",
       "a part of DSCP"},
      {"ECN", "ipv6", "permit ipv6 any any traffic-class 1 0x03", "", "ECN", "ECN"},
      {"TTL", "ip", "permit ip any any ttl eq 1", "", "", "a TTL"},
      {"a range of TTL", "ip", "permit ip any any ttl lt 9", "any but one TTL", "any but one TTL", "a TTL"},
      {"ports of SCTP", "ip", "permit sctp any any eq 5", "ports of SCTP", "", ""},
      {"protocol 255", "ip", "permit 255 any any", "", "protocol 255", ""},
      {"an extension header", "ipv6", "permit 60 any any", "", "", "an extension header"},
      {"a message without a name", "ip", "permit icmp any any 99", "",
       "an ICMP message that has no name there", ""},
      {"an EtherType", "mac", "permit any any arp", "", "", nullptr},
      {"VLAN", "mac", "permit vlan 7 any any", "a VLAN", "a VLAN", nullptr},
  };
  for (const auto& row : table) {
    const std::string text = fmt::format("{} access-list A\n 10 {}\n", row.head, row.rule);
    const auto expected = [&](const char* name, const char* what) {
      return *what ? fmt::format("{} access-list A rule 10 ({}): {} cannot say {}\n", row.head, row.rule,
                                 name, what)
                   : std::string();
    };
    EXPECT_EQ(saidOf(text, Format::ietf, false), expected("ietf", row.ietf)) << row.why;
    EXPECT_EQ(saidOf(text, Format::openConfig, false), expected("openconfig", row.openConfig)) << row.why;
    EXPECT_EQ(saidOf(text, Format::sonic, false),
              row.sonic ? expected("sonic", row.sonic)
                        : "mac access-list A: sonic cannot say tables of MAC addresses\n")
        << row.why;
  }
}

TEST(Writer, LeavesOutOnlyWhatOpensNothing) {
  const auto ietf = [](const std::string& text) { return saidOf(text, Format::ietf, true); };
  const std::string head = "ip access-list A\n";
  EXPECT_EQ(ietf(head + "10 permit vlan 7 ip any any\n20 permit tcp any any\n"),
            "- ip access-list A rule 10 (permit vlan 7 ip any any): ietf cannot say a VLAN\n");
  EXPECT_EQ(ietf(head + "10 deny vlan 7 ip any any\n20 permit tcp any any\n"),
            "ip access-list A rule 10 (deny vlan 7 ip any any): ietf cannot say a VLAN\n")
      << "what it drops would be permitted by the next rule";
  EXPECT_EQ(ietf(head + "10 permit tcp any any\n20 deny vlan 7 ip any any\n"),
            "- ip access-list A rule 20 (deny vlan 7 ip any any): ietf cannot say a VLAN\n")
      << "the rest is dropped without it";
  EXPECT_EQ(ietf(head + "10 deny vlan 7 ip any any\n20 permit vlan 8 ip any any\n"),
            "- ip access-list A rule 20 (permit vlan 8 ip any any): ietf cannot say a VLAN\n- ip access-list "
            "A rule 10 (deny vlan 7 ip any any): ietf cannot say a VLAN\n")
      << "the rule behind it is left out, too";
  EXPECT_EQ(ietf(head + "10 permit ip any any mirror session S\nmirror session S destination e\n"),
            "- ip access-list A rule 10: ietf cannot say mirror session S\n- mirror session S: ietf has no "
            "place for it\n");
  EXPECT_EQ(ietf("interface e\n ip access-group X in\n"),
            "- interface e: ip access-group X in: the list is not defined, which ietf cannot say\n");
  EXPECT_EQ(ietf("port-channel po members a\n"), "- port-channel po: ietf cannot say which members it has\n");
  EXPECT_EQ(ietf(head + "port-channel po members a\ninterface po\n ip access-group A in\n"),
            "port-channel po: ietf cannot say which members it has\n")
      << "its members would be open";
  EXPECT_EQ(saidOf("mac access-list M\n", Format::sonic, true),
            "- mac access-list M: sonic cannot say tables of MAC addresses\n");
  EXPECT_EQ(saidOf("mac access-list M\ninterface e\n mac access-group M in\n", Format::sonic, true),
            "mac access-list M: sonic cannot say tables of MAC addresses\n");
  EXPECT_EQ(saidOf("ip access-list A\nipv6 access-list A\n", Format::ietf, false),
            "ipv6 access-list A: ietf cannot say lists of two kinds with one name\n");
  EXPECT_EQ(saidOf("ip access-list A\ninterface e\n ip access-group A in\n ip access-group A out\n",
                   Format::sonic, true),
            "ip access-list A: sonic cannot say a table that is bound both in and out\n");
  EXPECT_EQ(saidOf(head + "10 permit ip any any log\n", Format::sonic, false),
            "ip access-list A rule 10: sonic cannot say log\n");
}

TEST(Writer, WritesPartsOfARuleBehindEachOther) {
  const auto again = [](const std::string& text) {
    const auto written = write(modelOf(text), Format::openConfig, false);
    return readAs(written.document);
  };
  EXPECT_EQ(
      again("ip access-list A\n remark r\n 10 permit tcp any eq 1 2 any neq 5 6\n 20 permit ip any any\n"),
      "ip access-list A\n   remark r\n   10 permit tcp any eq 1 any range 0 4\n   11 permit tcp any eq 1 any "
      "range 7 65535\n"
      "   12 permit tcp any eq 2 any range 0 4\n   13 permit tcp any eq 2 any range 7 65535\n   20 permit ip "
      "any any\n");
  EXPECT_EQ(again("ip access-list A\n 10 permit tcp any eq 1 2 any\n 11 permit ip any any\n"),
            "ip access-list A\n   10 permit tcp any eq 1 any\n   20 permit tcp any eq 2 any\n   30 permit ip "
            "any any\n")
      << "without room all have new numbers";
  EXPECT_EQ(again("ip access-list A\n 4294967295 permit ip any any\n"),
            "ip access-list A\n   10 permit ip any any\n")
      << "the last number is that of the end";
  EXPECT_EQ(again("ip access-list A\n 10 permit tcp any lt 0 any\n 20 permit ip any any\n"),
            "ip access-list A\n   20 permit ip any any\n")
      << "what no packet matches";
  EXPECT_EQ(again("ip access-list A\n"), "ip access-list A\n");
}

}  // namespace
}  // namespace Models
