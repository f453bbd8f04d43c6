#include "Support.h"

// Statements that other systems' texts have.

namespace Config {
namespace {

TEST(Exit, AndEndChangeNothing) {
  const struct {
    const char* why;
    const char* with;
    const char* without;
  } table[] = {
      {"behind a list", "ip access-list A\n permit ip any any\nexit\ninterface e\n ip access-group A in\n",
       "ip access-list A\n permit ip any any\ninterface e\n ip access-group A in\n"},
      {"a list stays open", "ip access-list A\n permit ip any any\n exit\n deny ip any any\n",
       "ip access-list A\n permit ip any any\n deny ip any any\n"},
      {"at the end", "interface e\n ip access-group A in\nend\n", "interface e\n ip access-group A in\n"},
      {"outside everything", "exit\nend\n", ""},
  };
  for (const auto& row : table) EXPECT_EQ(modelOf(row.with), modelOf(row.without)) << row.why;
  const MistakeRow mistakes[] = {
      {"words behind it", "exit all", "1:6: found \"all\", expected the end of the line"},
      {"there is nothing to take back", "no end",
       "1:4: found \"end\", expected ip, ipv4, ipv6, mac, access-list, interface, port-channel, object-group "
       "or "
       "mirror"},
  };
  expectMistakes("", mistakes);
}

TEST(Ipv4, IsAnotherWordForIp) {
  EXPECT_EQ(modelOf("ipv4 access-list A\n permit ip any any\ninterface e\n ipv4 access-group A in\n"),
            modelOf("ip access-list A\n permit ip any any\ninterface e\n ip access-group A in\n"));
  EXPECT_TRUE(modelOf("ip access-list A\nno ipv4 access-list A\n").lists.empty());
  EXPECT_TRUE(listOf("ipv4 access-list standard A\n permit any\n").standard);
  EXPECT_EQ(ipRule("permit ipv4 any any").filter, ipRule("permit ip any any").filter);
  const MistakeRow mistakes[] = {
      {"in a list of another kind", "permit ipv4 any any",
       "2:8: found \"ipv4\" in an IPv6 list, expected ipv6, tcp, udp, icmpv6, sctp, another protocol "
       "name or 0 to 255"}};
  expectMistakes("ipv6 access-list A\n", mistakes);
}

TEST(NumberedRemark, IsShownBeforeTheNextRuleBehindItsNumber) {
  const struct {
    const char* why;
    const char* text;
    std::vector<std::string> remarks;  ///< of the rules, in order
    std::vector<std::string> pending;
  } table[] = {
      {"in front of its rule", "5 remark a\n10 permit ip any any\n20 deny ip any any\n", {"a", ""}, {}},
      {"typed last", "10 permit ip any any\n20 deny ip any any\n15 remark a\n", {"", "a"}, {}},
      {"a rule of that number", "10 remark a\n10 permit ip any any\n", {"a"}, {}},
      {"in the order of the numbers, not of the text",
       "8 remark b\n5 remark a\n10 permit ip any any\n",
       {"a\nb"},
       {}},
      {"in front of a remark without a number", "remark b\n10 permit ip any any\n5 remark a\n", {"a\nb"}, {}},
      {"lines of one number", "5 remark a\n5 remark b\n10 permit ip any any\n", {"a\nb"}, {}},
      {"it stays in its place when the rule there is replaced",
       "15 remark a\n20 permit ip any any\n20 deny ip any any\n",
       {"a"},
       {}},
      {"it goes with the next rule when that one goes",
       "15 remark a\n20 permit ip any any\n30 deny ip any any\nno 20\n",
       {"a"},
       {}},
      {"behind all rules it waits", "10 permit ip any any\nremark b\n15 remark a\n", {""}, {"a", "b"}},
      {"taken back by number", "5 remark a\n10 permit ip any any\nno 5\n", {""}, {}},
      {"taken back as a remark", "5 remark a\n5 remark b\n10 permit ip any any\nno 5 remark\n", {""}, {}},
      {"taken back as it was said",
       "5 remark a\n5 remark b\n10 permit ip any any\nno 5 remark a\n",
       {"b"},
       {}},
      {"another one is not there to be taken back",
       "5 remark a\n10 permit ip any any\nno 6 remark a\n",
       {"a"},
       {}},
      {"no rule comes of its number", "100 remark a\npermit ip any any\n", {""}, {"a"}},
  };
  for (const auto& row : table) {
    const auto list = listOf(std::string("ip access-list A\n") + row.text);
    std::vector<std::string> remarks;
    for (const auto& [number, rule] : list.rules) remarks.push_back(common(rule).remark.str());
    EXPECT_EQ(remarks, row.remarks) << row.why;
    EXPECT_EQ(list.pendingRemarks, row.pending) << row.why;
  }
  EXPECT_EQ(
      common(
          listOf("ip access-list A\n5 remark a\nno ip access-list A\nip access-list A\npermit ip any any\n")
              .rules.at(10))
          .remark,
      "")
      << "a list that comes again begins anew";
}

TEST(NumberedList, IsAListOfThatName) {
  const struct {
    const char* why;
    const char* numbered;
    const char* named;
  } table[] = {
      {"extended", "access-list 101 permit tcp any any eq 80\naccess-list 101 deny ip any any log\n",
       "ip access-list 101\n permit tcp any any eq 80\n deny ip any any log\n"},
      {"the highest of the second range", "access-list 2699 deny ip any any\n",
       "ip access-list 2699\n deny ip any any\n"},
      {"standard", "access-list 99 permit 192.0.2.0 0.0.0.255\naccess-list 99 deny any log\n",
       "ip access-list standard 99\n permit 192.0.2.0 0.0.0.255\n deny any log\n"},
      {"the second standard range", "access-list 1300 permit any\n",
       "ip access-list standard 1300\n permit any\n"},
      {"a bare address is a host", "access-list 10 permit 192.0.2.1\naccess-list 10 deny 192.0.2.2 log\n",
       "ip access-list standard 10\n permit host 192.0.2.1\n deny host 192.0.2.2 log\n"},
      {"remarks", "access-list 101 remark web\naccess-list 101 permit tcp any any eq 80\n",
       "ip access-list 101\n remark web\n permit tcp any any eq 80\n"},
      {"beside a named one", "ip access-list 101\n 50 permit tcp any any\naccess-list 101 deny ip any any\n",
       "ip access-list 101\n 50 permit tcp any any\n 60 deny ip any any\n"},
      {"taken back", "access-list 101 deny ip any any\nno access-list 101\n", ""},
      {"what is not there is no mistake", "no access-list 1\n", ""},
  };
  for (const auto& row : table) EXPECT_EQ(modelOf(row.numbered), modelOf(row.named)) << row.why;
}

TEST(NumberedList, HasMistakes) {
#define NUMBERS                                                                                             \
  "the number of a list: 1 to 99 or 1300 to 1999 of a standard, 100 to 199 or 2000 to 2699 of an extended " \
  "one"
  const MistakeRow table[] = {
      {"no number", "access-list", "1:12: found the end of the line, expected " NUMBERS},
      {"a name", "access-list TEST permit ip any any", "1:13: found \"TEST\", expected " NUMBERS},
      {"number 0", "access-list 0 permit any", "1:13: found \"0\", expected " NUMBERS},
      {"a number of other protocols", "access-list 200 permit any", "1:13: found \"200\", expected " NUMBERS},
      {"below the second standard range", "access-list 1299 permit any",
       "1:13: found \"1299\", expected " NUMBERS},
      {"above all", "access-list 2700 permit ip any any", "1:13: found \"2700\", expected " NUMBERS},
      {"no rule", "access-list 101", "1:16: found the end of the line, expected permit, deny or remark"},
      {"another word", "access-list 101 dynamic X permit ip any any",
       "1:17: found \"dynamic\", expected permit, deny or remark"},
      {"an extended rule in a standard list", "access-list 10 permit ip any any",
       "1:23: found \"ip\", expected any, host A.B.C.D, A.B.C.D/LENGTH or A.B.C.D WILDCARD"},
      {"a bare address in an extended list", "access-list 101 permit ip 192.0.2.1 any",
       "1:37: found \"any\", expected a wildcard for the address, such as 0.0.0.255 (one address is host "
       "A.B.C.D)"},
      {"a faulty wildcard is none", "access-list 10 permit 192.0.2.0 0.0.0.256",
       "1:33: found \"0.0.0.256\", expected log, mirror or the end of the line"},
      {"a bare address in a standard list of a name", "ip access-list standard 10\npermit 192.0.2.1",
       "2:17: found the end of the line, expected a wildcard for the address, such as 0.0.0.255 (one address "
       "is "
       "host A.B.C.D)"},
      {"the list is there in the other form", "ip access-list 10\naccess-list 10 permit any",
       "2:13: found \"10\" of an extended list, expected ip access-list extended in front of it, or no ip "
       "access-list 10 first"},
      {"the statement opens no list", "access-list 101 permit ip any any\npermit ip any any",
       "2:1: found \"permit\" outside a list, expected it below ip, ipv6 or mac access-list NAME"},
      {"taking back a rule would take back the list elsewhere", "no access-list 10 permit any",
       "1:19: found \"permit\", expected the end of the line: no access-list 10 takes back the whole list, "
       "and no "
       "RULE below ip access-list standard 10 one rule"},
  };
  expectMistakes("", table);
}

TEST(InterfaceNotes, AreKept) {
  const struct {
    const char* why;
    const char* text;
    const char* description;
    bool shutdown;
  } table[] = {
      {"a description", "description uplink  to core\n", "uplink  to core", false},
      {"a second replaces the first", "description a\ndescription b\n", "b", false},
      {"taken back", "description a\nno description\n", "", false},
      {"taken back as it was said", "description a\nno description a\n", "", false},
      {"another one is not there to be taken back", "description a\nno description b\n", "a", false},
      {"shut down", "shutdown\n", "", true},
      {"both", "description a\nshutdown\n", "a", true},
      {"not shut down", "shutdown\nno shutdown\n", "", false},
      {"never shut down", "no shutdown\n", "", false},
      {"one taken back leaves the other", "description a\nshutdown\nno description\n", "", true},
      {"and the other way", "description a\nshutdown\nno shutdown\n", "a", false},
      {"all of an interface", "description a\nshutdown\nno interface e\n", "", false},
  };
  for (const auto& row : table) {
    const auto model = modelOf(std::string("interface e\n") + row.text);
    const auto notes = model.interfaceNotes.find("e");
    const bool kept = *row.description || row.shutdown;
    ASSERT_EQ(notes != model.interfaceNotes.end(), kept) << row.why;
    if (!kept) continue;
    EXPECT_EQ(notes->second.description, row.description) << row.why;
    EXPECT_EQ(notes->second.shutdown, row.shutdown) << row.why;
    EXPECT_TRUE(model.bindings.empty()) << row.why;
  }
  const MistakeRow mistakes[] = {
      {"a description of nothing", "interface e\ndescription",
       "2:12: found the end of the line, expected the text of the description"},
      {"words behind shutdown", "interface e\nshutdown now",
       "2:10: found \"now\", expected the end of the line"},
      {"outside an interface", "description x",
       "1:1: found \"description\" outside an interface, expected it below interface NAME"},
      {"in a list", "ip access-list A\nno shutdown",
       "2:4: found \"shutdown\" outside an interface, expected it below interface NAME"},
  };
  expectMistakes("", mistakes);
}

TEST(Synonyms, SayTheSame) {
  const std::pair<const char*, const char*> ip[] = {
      {"permit icmp any any echo-request", "permit icmp any any echo"},
      {"permit icmp any any destination-unreachable", "permit icmp any any unreachable"},
      {"permit icmp any any dod-host-prohibited", "permit icmp any any host-prohibited"},
      {"permit icmp any any no-room-for-option", "permit icmp any any 12 2"},
      {"permit ospfigp any any", "permit ospf any any"},
      {"permit tcp any any eq cmd", "permit tcp any any eq shell"},
      {"permit udp any any eq non500-isakmp", "permit udp any any eq 4500"},
      {"permit ip any any dscp voice-admit", "permit ip any any dscp va"},
  };
  for (const auto& [one, other] : ip) EXPECT_EQ(ipRule(one).filter, ipRule(other).filter) << one;
  const std::pair<const char*, const char*> ip6[] = {
      {"permit icmp6 any any nd-ns", "permit icmpv6 any any neighbor-solicitation"},
      {"permit ipv6-icmp any any nd-na", "permit icmpv6 any any 136"},
      {"permit icmpv6 any any no-admin", "permit icmpv6 any any 1 1"},
      {"permit icmpv6 any any destination-unreachable", "permit icmpv6 any any 1"},
  };
  for (const auto& [one, other] : ip6) EXPECT_EQ(ip6Rule(one).filter, ip6Rule(other).filter) << one;
  EXPECT_EQ(macRule("permit any any ipv4").filter, macRule("permit any any ip").filter);
  EXPECT_EQ(macRule("permit any any mpls-unicast").filter, macRule("permit any any 0x8847").filter);
}

}  // namespace
}  // namespace Config
