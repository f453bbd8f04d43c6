#include "Support.h"

namespace Models {
namespace {

/// A document with one list, whose one entry has these members behind its name.
std::string withEntry(std::string_view type, std::string_view members) {
  return fmt::format(
      "{{\"ietf-access-control-list:acls\": {{\"acl\": [{{\"name\": \"A\", \"type\": \"{}\", \"aces\": "
      "{{\"ace\": [\n"
      "{{\"name\": \"10\", {}}}]}}}}]}}}}",
      type, members);
}
std::string withMatches(std::string_view type, std::string_view matches) {
  return withEntry(type, fmt::format(R"("matches": {{{}}}, "actions": {{"forwarding": "accept"}})", matches));
}

struct Row {
  const char* why;
  const char* type;
  const char* matches;
  const char*
      result;  ///< the rule without its number; or the mistake without its file and what is common to paths
};

TEST(Ietf, CarriesEveryConditionOver) {
  constexpr Row table[] = {
      {"no condition", "ipv4-acl-type", "", "permit ip any any"},
      {"an empty header", "ipv4-acl-type", R"("ipv4": {})", "permit ip any any"},
      {"no condition", "ipv6-acl-type", "", "permit ipv6 any any"},
      {"no condition", "eth-acl-type", "", "permit any any"},
      {"the module's name in front", "ietf-access-control-list:ipv4-acl-type", "", "permit ip any any"},
      {"addresses", "ipv4-acl-type",
       R"("ipv4": {"source-ipv4-network": "192.0.2.0/24", "destination-ipv4-network": "198.51.100.7/32"})",
       "permit ip 192.0.2.0/24 198.51.100.7/32"},
      {"every address", "ipv4-acl-type", R"("ipv4": {"source-ipv4-network": "0.0.0.0/0"})",
       "permit ip any any"},
      {"a protocol", "ipv4-acl-type", R"("ipv4": {"protocol": 47})", "permit gre any any"},
      {"a protocol without a name", "ipv4-acl-type", R"("ipv4": {"protocol": 255})", "permit 255 any any"},
      {"DSCP and TTL", "ipv4-acl-type", R"("ipv4": {"dscp": 46, "ttl": 255})",
       "permit ip any any dscp 46 ttl eq 255"},
      {"addresses of IPv6", "ipv6-acl-type",
       R"("ipv6": {"source-ipv6-network": "2001:db8::/32", "destination-ipv6-network": "::1/128"})",
       "permit ipv6 2001:db8::/32 ::1/128"},
      {"ECN", "ipv6-acl-type", R"("ipv6": {"ecn": 2})", "permit ipv6 any any traffic-class 2 0x3"},
      {"DSCP and ECN", "ipv6-acl-type", R"("ipv6": {"dscp": 46, "ecn": 1})",
       "permit ipv6 any any traffic-class 185"},
      {"DSCP and hop limit", "ipv6-acl-type", R"("ipv6": {"dscp": 0, "ttl": 1})",
       "permit ipv6 any any dscp 0 hop-limit eq 1"},
      {"TCP alone", "ipv4-acl-type", R"("tcp": {})", "permit tcp any any"},
      {"UDP", "ipv6-acl-type", R"("udp": {})", "permit udp any any"},
      {"TCP, said twice", "ipv4-acl-type", R"("ipv4": {"protocol": 6}, "tcp": {})", "permit tcp any any"},
      {"a port", "ipv4-acl-type", R"("udp": {"destination-port": {"operator": "eq", "port": 53}})",
       "permit udp any any eq 53"},
      {"a port without an operator", "ipv4-acl-type", R"("udp": {"source-port": {"port": 53}})",
       "permit udp any eq 53 any"},
      {"another port", "ipv4-acl-type", R"("tcp": {"source-port": {"operator": "neq", "port": 21}})",
       "permit tcp any neq 21 any"},
      {"up to a port", "ipv4-acl-type", R"("tcp": {"source-port": {"operator": "lte", "port": 1023}})",
       "permit tcp any lt 1024 any"},
      {"up to the last", "ipv4-acl-type", R"("tcp": {"source-port": {"operator": "lte", "port": 65535}})",
       "permit tcp any range 0 65535 any"},
      {"from a port on", "ipv4-acl-type", R"("tcp": {"source-port": {"operator": "gte", "port": 1024}})",
       "permit tcp any gt 1023 any"},
      {"from the first on", "ipv4-acl-type", R"("tcp": {"source-port": {"operator": "gte", "port": 0}})",
       "permit tcp any range 0 65535 any"},
      {"a range", "ipv4-acl-type", R"("tcp": {"destination-port": {"lower-port": 5, "upper-port": 5}})",
       "permit tcp any any range 5 5"},
      {"a message", "ipv4-acl-type", R"("icmp": {"type": 8, "code": 0})", "permit icmp any any 8 0"},
      {"a message of IPv6", "ipv6-acl-type", R"("icmp": {"type": 128})", "permit icmpv6 any any 128"},
      {"MAC addresses", "eth-acl-type",
       R"("eth": {"source-mac-address": "02:00:00:00:00:01", "destination-mac-address": "02:00:00:00:00:00",
          "destination-mac-address-mask": "ff:ff:ff:00:00:00"})",
       "permit host 02:00:00:00:00:01 02:00:00:00:00:00 00:00:00:ff:ff:ff"},
      {"the whole mask", "eth-acl-type",
       R"("eth": {"source-mac-address": "02:00:00:00:00:01", "source-mac-address-mask": "FF:FF:FF:FF:FF:FF"})",
       "permit host 02:00:00:00:00:01 any"},
      {"an EtherType", "eth-acl-type", R"("eth": {"ethertype": 35020})", "permit any any 0x88cc"},
      {"its name", "eth-acl-type", R"("eth": {"ethertype": "eap"})", "permit any any 0x888e"},
  };
  for (const auto& row : table) {
    const auto kind = std::string_view(row.type).substr(std::string_view(row.type).find_last_of(':') + 1);
    const std::string header = kind == "ipv4-acl-type" ? "ip" : kind == "ipv6-acl-type" ? "ipv6" : "mac";
    EXPECT_EQ(readAs(withMatches(row.type, row.matches)),
              fmt::format("{} access-list A\n   10 {}\n", header, row.result))
        << row.why;
  }
}

constexpr const char* entryPath = "/ietf-access-control-list:acls/acl[A]/aces/ace[10]";

TEST(Ietf, RefusesWhatARuleCannotSay) {
  constexpr Row table[] = {
      {"ECN of IPv4", "ipv4-acl-type", R"("ipv4": {"ecn": 1})",
       "found 1 at PATH/matches/ipv4/ecn, expected it left out: an IPv4 rule cannot ask for ECN"},
      {"a length", "ipv4-acl-type", R"("ipv4": {"length": 60})",
       "found 60 at PATH/matches/ipv4/length, expected it left out: a rule cannot ask for the length of a "
       "packet"},
      {"fragment flags", "ipv4-acl-type", R"("ipv4": {"flags": "fragment"})",
       R"(found "fragment" at PATH/matches/ipv4/flags, expected it left out: a rule cannot ask for the flags of a fragment)"},
      {"a flow label", "ipv6-acl-type", R"("ipv6": {"flow-label": 7})",
       "found 7 at PATH/matches/ipv6/flow-label, expected it left out: a rule cannot ask for a flow label"},
      {"TCP flags", "ipv4-acl-type", R"("tcp": {"flags": "syn"})",
       R"(found "syn" at PATH/matches/tcp/flags, expected it left out: it asks for these flags and no others, and a rule cannot ask that flags are clear)"},
      {"no flag at all", "ipv4-acl-type", R"("tcp": {"flags": ""})",
       R"(found "" at PATH/matches/tcp/flags, expected it left out: it asks for these flags and no others, and a rule cannot ask that flags are clear)"},
      {"an interface", "ipv4-acl-type", R"("ingress-interface": "eth1")",
       R"(found "eth1" at PATH/matches/ingress-interface, expected it left out: a rule cannot ask for an interface: lists are bound to them)"},
      {"two protocols", "ipv4-acl-type", R"("ipv4": {"protocol": 17}, "tcp": {})",
       "found an object at PATH/matches/tcp, expected it without protocol 17: no packet has both"},
      {"two headers", "ipv4-acl-type", R"("tcp": {}, "udp": {})",
       "found an object at PATH/matches/udp, expected it without protocol 6: no packet has both"},
      {"IPv6 in an IPv4 list", "ipv4-acl-type", R"("ipv6": {})",
       "found an object at PATH/matches/ipv6, expected no such header in a list of IPv4 rules"},
      {"Ethernet in an IPv4 list", "ipv4-acl-type", R"("eth": {})",
       "found an object at PATH/matches/eth, expected no such header in a list of IPv4 rules"},
      {"IPv4 in an Ethernet list", "eth-acl-type", R"("ipv4": {})",
       "found an object at PATH/matches/ipv4, expected no such header in a list of Ethernet rules"},
      {"TCP in an Ethernet list", "eth-acl-type", R"("tcp": {})",
       "found an object at PATH/matches/tcp, expected no such header in a list of Ethernet rules"},
      {"a code of any type", "ipv4-acl-type", R"("icmp": {"code": 0})",
       "found PATH incomplete, expected the ICMP type of its code"},
      {"a mask alone", "eth-acl-type", R"("eth": {"source-mac-address-mask": "ff:ff:ff:00:00:00"})",
       "found PATH incomplete, expected the MAC address of its mask"},
      {"a length as EtherType", "eth-acl-type", R"("eth": {"ethertype": 1500})",
       "found 1500 at PATH/matches/eth/ethertype, expected an EtherType from 1536: below that the field is a "
       "length"},
      {"a tag as EtherType", "eth-acl-type", R"("eth": {"ethertype": "vlan"})",
       R"(found "vlan" at PATH/matches/eth/ethertype, expected the EtherType of what is tagged: rules look at the type behind the tags)"},
      {"an unknown EtherType", "eth-acl-type", R"("eth": {"ethertype": "ip"})",
       R"(found "ip" at PATH/matches/eth/ethertype, expected an EtherType as a number or a name of ietf-ethertypes)"},
      {"an address without a length", "ipv4-acl-type", R"("ipv4": {"source-ipv4-network": "192.0.2.1"})",
       R"(found "192.0.2.1" at PATH/matches/ipv4/source-ipv4-network, expected an IPv4 prefix, as 192.0.2.0/24)"},
      {"a length too many", "ipv6-acl-type", R"("ipv6": {"source-ipv6-network": "::/129"})",
       R"(found "::/129" at PATH/matches/ipv6/source-ipv6-network, expected an IPv6 prefix, as 2001:db8::/32)"},
      {"dashes", "eth-acl-type", R"("eth": {"source-mac-address": "02-00-00-00-00-01"})",
       R"(found "02-00-00-00-00-01" at PATH/matches/eth/source-mac-address, expected a MAC address, as 02:00:00:00:00:01)"},
      {"half a range", "ipv4-acl-type", R"("tcp": {"source-port": {"lower-port": 1}})",
       "found an object at PATH/matches/tcp/source-port, expected either lower-port and upper-port, or port "
       "with an operator"},
      {"range and port", "ipv4-acl-type",
       R"("tcp": {"source-port": {"lower-port": 1, "upper-port": 2, "port": 1}})",
       "found an object at PATH/matches/tcp/source-port, expected either lower-port and upper-port, or port "
       "with an operator"},
      {"an empty operator", "ipv4-acl-type", R"("tcp": {"source-port": {"operator": "", "port": 5}})",
       "found \"\" at PATH/matches/tcp/source-port/operator, expected eq, neq, lte or gte"},
      {"an operator alone", "ipv4-acl-type", R"("tcp": {"source-port": {"operator": "eq"}})",
       "found an object at PATH/matches/tcp/source-port, expected either lower-port and upper-port, or port "
       "with an operator"},
      {"a range upside down", "ipv4-acl-type",
       R"("tcp": {"source-port": {"lower-port": 2, "upper-port": 1}})",
       "found an object at PATH/matches/tcp/source-port, expected a lower-port that is not above the "
       "upper-port"},
      {"an operator of ours", "ipv4-acl-type", R"("tcp": {"source-port": {"operator": "lt", "port": 1}})",
       R"(found "lt" at PATH/matches/tcp/source-port/operator, expected eq, neq, lte or gte)"},
      {"a number out of range", "ipv4-acl-type", R"("ipv4": {"dscp": 64})",
       "found 64 at PATH/matches/ipv4/dscp, expected a number from 0 to 63"},
      {"a negative number", "ipv4-acl-type", R"("ipv4": {"ttl": -1})",
       "found -1 at PATH/matches/ipv4/ttl, expected a number from 0 to 255"},
      {"a fraction", "ipv4-acl-type", R"("ipv4": {"ttl": 1.0})",
       "found 1.0 at PATH/matches/ipv4/ttl, expected a number from 0 to 255"},
      {"a text for a number", "ipv4-acl-type", R"("ipv4": {"ttl": "1"})",
       R"(found "1" at PATH/matches/ipv4/ttl, expected a number from 0 to 255)"},
      {"a number for a text", "ipv4-acl-type", R"("ipv4": {"source-ipv4-network": 1})",
       "found 1 at PATH/matches/ipv4/source-ipv4-network, expected a text"},
      {"an array for an object", "ipv4-acl-type", R"("ipv4": [])",
       "found an array at PATH/matches/ipv4, expected an object"},
      {"a leaf of another module", "ipv4-acl-type", R"("ipv4": {"ietf-acldns:src-dnsname": "a"})",
       "found the unknown PATH/matches/ipv4/ietf-acldns:src-dnsname, expected dscp, ecn, length, ttl, "
       "protocol, ihl, flags, offset, "
       "identification, source-ipv4-network or destination-ipv4-network"},
      {"an unknown leaf", "ipv4-acl-type", R"("icmp": {"typ": 8})",
       "found the unknown PATH/matches/icmp/typ, expected type, code or rest-of-header (did you mean type?)"},
  };
  for (const auto& row : table) {
    std::string expected = row.result;
    for (size_t at = 0; (at = expected.find("PATH")) != std::string::npos;)
      expected.replace(at, 4, entryPath);
    const auto found = readAs(withMatches(row.type, row.matches));
    EXPECT_EQ(found.substr(std::min(found.find(" ") + 1, found.size())), expected + "\n") << row.why;
  }
}

TEST(Ietf, SaysWhatBecomesOfPackets) {
  const auto rule = [](std::string_view actions) { return readAs(withEntry("ipv4-acl-type", actions)); };
  EXPECT_EQ(rule(R"("actions": {"forwarding": "drop"})"), "ip access-list A\n   10 deny ip any any\n");
  EXPECT_EQ(rule(R"("actions": {"forwarding": "ietf-access-control-list:drop", "logging": "log-syslog"})"),
            "ip access-list A\n   10 deny ip any any log\n");
  EXPECT_EQ(rule(R"("actions": {"forwarding": "accept", "logging": "ietf-access-control-list:log-none"})"),
            "ip access-list A\n   10 permit ip any any\n");
  EXPECT_EQ(rule(R"("actions": {"forwarding": "reject"})"),
            fmt::format("t:2:28: found \"reject\" at {}/actions/forwarding, expected accept or drop: nothing "
                        "sends ICMP errors here\n",
                        entryPath));
  EXPECT_EQ(rule(R"("actions": {"forwarding": "other:drop"})"),
            fmt::format("t:2:28: found \"other:drop\" at {}/actions/forwarding, expected a name of "
                        "ietf-access-control-list\n",
                        entryPath));
  EXPECT_EQ(rule(R"("actions": {"forwarding": "drop", "logging": "log-all"})"),
            fmt::format("t:2:50: found \"log-all\" at {}/actions/logging, expected log-syslog or log-none\n",
                        entryPath));
  EXPECT_EQ(rule(R"("actions": {})"),
            fmt::format("t:2:1: found {} incomplete, expected what becomes of packets\n", entryPath));
}

/// A document of lists, without the root.
std::string documentOf(std::string_view inside) {
  return fmt::format("{{\"ietf-access-control-list:acls\": {{{}}}}}", inside);
}
std::string aclOf(std::string_view name, std::string_view type, std::string_view aces) {
  return fmt::format(R"({{"name": "{}", "type": "{}-acl-type", "aces": {{"ace": [{}]}}}})", name, type, aces);
}
std::string aceOf(std::string_view name, std::string_view forwarding, std::string_view matches = "") {
  return fmt::format(R"({{"name": "{}", "matches": {{{}}}, "actions": {{"forwarding": "{}"}}}})", name,
                     matches, forwarding);
}
constexpr const char* tcp = R"("tcp": {})";

TEST(Ietf, NumbersRulesInTheOrderOfTheDocument) {
  const auto named = [](const char* first, const char* second) {
    return readAs(documentOf(
        "\"acl\": [" + aclOf("A", "ipv4", aceOf(first, "accept", tcp) + "," + aceOf(second, "drop")) + "]"));
  };
  EXPECT_EQ(named("5", "70"), "ip access-list A\n   5 permit tcp any any\n   70 deny ip any any\n")
      << "names that are numbers";
  EXPECT_EQ(named("70", "5"),
            "ip access-list A\n   remark 70\n   10 permit tcp any any\n   remark 5\n   20 deny ip any any\n")
      << "the order of the document is what counts";
  EXPECT_EQ(named("web", "rest of it"),
            "ip access-list A\n   remark web\n   10 permit tcp any any\n   remark rest of it\n   20 deny ip "
            "any any\n");
  EXPECT_EQ(named("5", "implicit-drop"), "ip access-list A\n   5 permit tcp any any\n")
      << "the end that we write";
  EXPECT_EQ(named(" ", "5"),
            "ip access-list A\n   10 permit tcp any any\n   remark 5\n   20 deny ip any any\n")
      << "a blank has nothing to say";
}

TEST(Ietf, RefusesNamesThatWouldBeStatements) {
  const auto acl = aclOf("A", "ipv4", aceOf("web\\n   5 permit ip any any", "drop"));
  EXPECT_EQ(
      readAs(documentOf("\"acl\": [\n" + acl + "]")),
      "t:2:57: found control characters in /ietf-access-control-list:acls/acl[A]/aces/ace[web    5 permit ip any any], expected texts without them\n");
}

TEST(Ietf, NamesHaveOneTo64Characters) {
  const auto named = [](const std::string& list, const std::string& ace) {
    return readAs(documentOf("\"acl\": [" + aclOf(list, "ipv4", aceOf(ace, "drop")) + "]"));
  };
  std::string accents;
  for (int i = 0; i < 64; ++i) accents += "\xc3\xa9";
  const std::string longest(64, 'x');
  EXPECT_EQ(named(longest, accents),
            fmt::format("ip access-list {}\n   remark {}\n   10 deny ip any any\n", longest, accents));
  for (const auto& [list, ace] : {std::pair(longest + "x", longest), std::pair(longest, accents + "x"),
                                  std::pair(longest, std::string())})
    EXPECT_NE(named(list, ace).find("/name, expected a name of 1 to 64 characters\n"), std::string::npos)
        << list << " " << ace;
}

TEST(Ietf, WarnsWhenADocumentHasNoEnd) {
  const auto list = [](const std::string& aces) {
    return warningsOf(documentOf("\"acl\": [" + aclOf("A", "ipv4", aces) + "]"));
  };
  constexpr const char* noEnd =
      "1:44 implicit-end /ietf-access-control-list:acls/acl[A] does not say what becomes of a packet that no "
      "rule of it matches: it is dropped\n";
  EXPECT_EQ(list(aceOf("10", "accept", tcp)), noEnd);
  EXPECT_EQ(list(""), noEnd) << "a list without rules";
  EXPECT_EQ(list(aceOf("10", "accept", tcp) + "," + aceOf("20", "accept")), "");
  EXPECT_EQ(list(aceOf("10", "accept", tcp) + "," + aceOf("implicit-drop", "drop")), "");
  EXPECT_EQ(list(aceOf("10", "accept", tcp) + "," + aceOf("implicit-drop", "drop", tcp)), noEnd)
      << "only its name is the end's";
}

TEST(Ietf, BindsLists) {
  const std::string lists =
      "\"acl\": [" + aclOf("A", "ipv4", aceOf("1", "drop")) + "," + aclOf("B", "ipv6", aceOf("1", "drop")) +
      "," + aclOf("C", "eth", aceOf("1", "drop")) + "," + aclOf("D", "ipv4", aceOf("1", "drop")) + "]";
  const auto bound = [&](std::string_view interface) {
    const auto text = readAs(
        documentOf(lists + ", \"attachment-points\": {\"interface\": [\n" + std::string(interface) + "]}"));
    return text.starts_with("t:") ? text : text.substr(std::min(text.find("interface"), text.size()));
  };
  const auto sets = [](std::string_view names) {
    return fmt::format(R"({{"acl-sets": {{"acl-set": [{}]}}}})", names);
  };
  EXPECT_EQ(
      bound(R"({"interface-id": "eth1", "egress": )" + sets(R"({"name": "A"}, {"name": "B"})") +
            R"(, "ingress": )" + sets(R"({"name": "C"})") + "}"),
      "interface eth1\n   ip access-group A out\n   ipv6 access-group B out\n   mac access-group C in\n");
  EXPECT_EQ(bound(R"({"interface-id": "eth1", "ingress": )" + sets(R"({"name": "A"}, {"name": "D"})") + "}"),
            "t:2:78: found an object at "
            "/ietf-access-control-list:acls/attachment-points/interface[eth1]/ingress/acl-sets/acl-set[D], "
            "expected one ip list in interface eth1: a second one cannot be bound\n");
  EXPECT_EQ(bound(R"({"interface-id": "eth1", "ingress": )" + sets(R"({"name": "X"})") + "}"),
            "t:2:63: found an object at "
            "/ietf-access-control-list:acls/attachment-points/interface[eth1]/ingress/acl-sets/acl-set[X], "
            "expected the name of a list that the document has\n");
  EXPECT_EQ(bound(R"({"interface-id": "eth 1"})"),
            "t:2:2: found \"eth 1\" at /ietf-access-control-list:acls/attachment-points/interface[eth "
            "1]/interface-id, "
            "expected a name of 1 to 255 printable ASCII characters without blanks\n");
}

TEST(Ietf, RefusesListsThatAreNotOfOneKind) {
  const auto list = [](std::string_view members) {
    return readAs(documentOf("\"acl\": [{" + std::string(members) + "}]"));
  };
  constexpr const char* path = "/ietf-access-control-list:acls/acl";
  EXPECT_EQ(
      list(R"("name": "A")"),
      fmt::format(
          "t:1:44: found {}[A] incomplete, expected its type: ipv4-acl-type, ipv6-acl-type or eth-acl-type\n",
          path));
  EXPECT_EQ(list(R"("name": "A", "type": "mixed-eth-ipv4-acl-type")"),
            fmt::format("t:1:58: found \"mixed-eth-ipv4-acl-type\" at {}[A]/type, expected ipv4-acl-type, "
                        "ipv6-acl-type or eth-acl-type: a list looks at one kind of header\n",
                        path));
  EXPECT_EQ(
      list(R"("name": "standard", "type": "ipv4-acl-type")"),
      fmt::format("t:1:45: found \"standard\" at {}[standard]/name, expected the name of a list, which this "
                  "word is not\n",
                  path));
  EXPECT_EQ(list(R"("type": "ipv4-acl-type")"),
            fmt::format("t:1:44: found {}[#1] incomplete, expected its key (name)\n", path));
  EXPECT_EQ(list(R"("name": "A", "type": "ipv4-acl-type"}, {"name": "A", "type": "ipv6-acl-type")"),
            fmt::format("t:1:84: found {}[A] a second time, expected it once\n", path));
  EXPECT_EQ(list(R"("name": "A B", "type": "ipv4-acl-type")"),
            fmt::format("t:1:45: found \"A B\" at {}[A B]/name, expected a name of 1 to 255 printable ASCII "
                        "characters without blanks\n",
                        path));
  EXPECT_EQ(
      list(R"("name": "A\ninterface eth1", "type": "ipv4-acl-type")"),
      fmt::format(
          "t:1:45: found \"A interface eth1\" at {}[A interface eth1]/name, expected a name of 1 to 255 "
          "printable ASCII characters without blanks\n",
          path));
}

TEST(Ietf, KeepsNoCountersAndSaysSo) {
  EXPECT_EQ(
      warningsOf(withEntry("ipv4-acl-type",
                           R"("actions": {"forwarding": "drop"}, "statistics": {"matched-packets": "7"})")),
      fmt::format("2:51 leaf-ignored {}/statistics is not kept: it has no effect on traffic\n", entryPath));
}

}  // namespace
}  // namespace Models
