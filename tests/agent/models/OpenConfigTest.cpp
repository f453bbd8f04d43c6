#include "Support.h"

namespace Models {
namespace {

/// A document with one list, whose one entry has these members.
std::string withEntry(std::string_view type, std::string_view members) {
  return fmt::format(
      R"({{"openconfig-acl:acl": {{"acl-sets": {{"acl-set": [{{"name": "A", "type": "{0}", "config": {{"name": "A", "type": "{0}"}},
"acl-entries": {{"acl-entry": [
{{"sequence-id": 10, "config": {{"sequence-id": 10}}, {1}}}]}}}}]}}}}}})",
      type, members);
}
std::string withMatches(std::string_view type, std::string_view matches) {
  return withEntry(type, fmt::format(R"({}{}"actions": {{"config": {{"forwarding-action": "ACCEPT"}}}})",
                                     matches, matches.empty() ? "" : ", "));
}

struct Row {
  const char* why;
  const char* type;
  const char* matches;
  const char* result;
};

TEST(OpenConfig, CarriesEveryConditionOver) {
  constexpr Row table[] = {
      {"no condition", "ACL_IPV4", "", "permit ip any any"},
      {"no condition", "openconfig-acl:ACL_IPV6", "", "permit ipv6 any any"},
      {"no condition", "ACL_L2", "", "permit any any"},
      {"addresses", "ACL_IPV4",
       R"("ipv4": {"config": {"source-address": "192.0.2.0/24", "destination-address": "198.51.100.7/32"}})",
       "permit ip 192.0.2.0/24 198.51.100.7/32"},
      {"a number", "ACL_IPV4", R"("ipv4": {"config": {"protocol": 254}})", "permit 254 any any"},
      {"a name", "ACL_IPV4", R"("ipv4": {"config": {"protocol": "IP_PIM"}})", "permit pim any any"},
      {"a name with its module", "ACL_IPV4",
       R"("ipv4": {"config": {"protocol": "openconfig-packet-match-types:IP_UDP"}})", "permit udp any any"},
      {"DSCP and TTL", "ACL_IPV4", R"("ipv4": {"config": {"dscp": 46, "hop-limit": 1}})",
       "permit ip any any dscp 46 ttl eq 1"},
      {"one of one", "ACL_IPV6", R"("ipv6": {"config": {"dscp-set": [46]}})", "permit ipv6 any any dscp 46"},
      {"any", "ACL_IPV6", R"("ipv6": {"config": {"dscp-set": []}})", "permit ipv6 any any"},
      {"ports", "ACL_IPV4",
       R"("ipv4": {"config": {"protocol": 6}}, "transport": {"config": {"source-port": "5..9", "destination-port": 80}})",
       "permit tcp any range 5 9 any eq 80"},
      {"any port", "ACL_IPV4",
       R"("ipv4": {"config": {"protocol": 6}}, "transport": {"config": {"source-port": "ANY"}})",
       "permit tcp any any"},
      {"flags", "ACL_IPV4",
       R"("ipv4": {"config": {"protocol": 6}}, "transport": {"config": {"detail-mode": "EXPLICIT", "explicit-detail-match-mode": "ALL", "explicit-tcp-flags": ["TCP_SYN", "openconfig-packet-match-types:TCP_ACK"]}})",
       "permit tcp any any ack syn"},
      {"one flag", "ACL_IPV4",
       R"("ipv4": {"config": {"protocol": 6}}, "transport": {"config": {"detail-mode": "EXPLICIT", "explicit-tcp-flags": ["TCP_URG"]}})",
       "permit tcp any any urg"},
      {"either of two", "ACL_IPV4",
       R"("ipv4": {"config": {"protocol": 6}}, "transport": {"config": {"detail-mode": "EXPLICIT", "explicit-detail-match-mode": "ANY", "explicit-tcp-flags": ["TCP_RST", "TCP_ACK"]}})",
       "permit tcp any any established"},
      {"established", "ACL_IPV4",
       R"("ipv4": {"config": {"protocol": 6}}, "transport": {"config": {"detail-mode": "BUILTIN", "builtin-detail": "TCP_ESTABLISHED"}})",
       "permit tcp any any established"},
      {"fragments", "ACL_IPV6",
       R"("transport": {"config": {"detail-mode": "BUILTIN", "builtin-detail": "FRAGMENT"}})",
       "permit ipv6 any any fragments"},
      {"a message", "ACL_IPV4",
       R"("ipv4": {"icmpv4": {"config": {"type": "DST_UNREACHABLE", "code": "openconfig-icmpv4-types:DST_UNREACHABLE_PORT"}}})",
       "permit icmp any any 3 3"},
      {"a message of IPv6", "ACL_IPV6", R"("ipv6": {"icmpv6": {"config": {"type": "ECHO_REQUEST"}}})",
       "permit icmpv6 any any 128"},
      {"MAC addresses", "ACL_L2",
       R"("l2": {"config": {"source-mac": "02:00:00:00:00:01", "destination-mac": "02:00:00:00:00:00", "destination-mac-mask": "ff:ff:ff:00:00:00", "ethertype": "ETHERTYPE_ARP"}})",
       "permit host 02:00:00:00:00:01 02:00:00:00:00:00 00:00:00:ff:ff:ff 0x0806"},
  };
  for (const auto& row : table) {
    const std::string_view type(row.type);
    const std::string header = type.ends_with("IPV4") ? "ip" : type.ends_with("IPV6") ? "ipv6" : "mac";
    EXPECT_EQ(readAs(withMatches(row.type, row.matches)),
              fmt::format("{} access-list A\n   10 {}\n", header, row.result))
        << row.why;
  }
}

constexpr const char* entryPath =
    "/openconfig-acl:acl/acl-sets/acl-set[A ACL_IPV4]/acl-entries/acl-entry[10]";

TEST(OpenConfig, RefusesWhatARuleCannotSay) {
  constexpr const char* tcp = R"("ipv4": {"config": {"protocol": 6}}, )";
  const struct {
    const char* why;
    std::string members;
    const char* found;
    const char* expected;
  } table[] = {
      {"a set", R"("ipv4": {"config": {"source-address-prefix-set": "S"}})",
       "\"S\" at PATH/ipv4/config/source-address-prefix-set",
       "it left out: sets are not taken: write the rule once for each member"},
      {"a set of ports", R"("transport": {"config": {"source-port-set": "S"}})",
       "\"S\" at PATH/transport/config/source-port-set",
       "it left out: sets are not taken: write the rule once for each member"},
      {"several DSCP", R"("ipv4": {"config": {"dscp-set": [1, 2]}})", "2 at PATH/ipv4/config/dscp-set",
       "one DSCP: a rule cannot ask for one of several"},
      {"a length", R"("ipv4": {"config": {"length": 60}})", "60 at PATH/ipv4/config/length",
       "it left out: a rule cannot ask for the length of a packet"},
      {"a protocol that cannot be", R"("ipv4": {"config": {"protocol": 255}})",
       "255 at PATH/ipv4/config/protocol", "a number from 0 to 254, or a name of a protocol as IP_TCP"},
      {"a number as a text", R"("ipv4": {"config": {"protocol": "6"}})", "\"6\" at PATH/ipv4/config/protocol",
       "a number from 0 to 254, or a name of a protocol as IP_TCP"},
      {"ports of any protocol", R"("transport": {"config": {"source-port": 5}})",
       "ports at PATH/transport/config/source-port",
       "a protocol that has ports (6, 17 or 132) beside them: a rule for any protocol has none"},
      {"a port as a text", tcp + std::string(R"("transport": {"config": {"source-port": "5"}})"),
       "\"5\" at PATH/transport/config/source-port", "a port as a number, \"LOW..HIGH\" or \"ANY\""},
      {"a range upside down", tcp + std::string(R"("transport": {"config": {"source-port": "9..5"}})"),
       "\"9..5\" at PATH/transport/config/source-port", "a port as a number, \"LOW..HIGH\" or \"ANY\""},
      {"the first packet",
       tcp + std::string(
                 R"("transport": {"config": {"detail-mode": "BUILTIN", "builtin-detail": "TCP_INITIAL"}})"),
       "PATH/transport",
       "builtin-detail TCP_ESTABLISHED or FRAGMENT: a rule cannot ask that a flag is clear"},
      {"flags without a mode",
       tcp + std::string(R"("transport": {"config": {"explicit-tcp-flags": ["TCP_SYN"]}})"), "PATH/transport",
       "detail-mode EXPLICIT with explicit-tcp-flags, or BUILTIN with builtin-detail"},
      {"an empty mode", tcp + std::string(R"("transport": {"config": {"detail-mode": ""}})"),
       "PATH/transport", "detail-mode EXPLICIT with explicit-tcp-flags, or BUILTIN with builtin-detail"},
      {"a way to match that there is not",
       tcp +
           std::string(
               R"("transport": {"config": {"detail-mode": "EXPLICIT", "explicit-detail-match-mode": "any", "explicit-tcp-flags": ["TCP_SYN"]}})"),
       "PATH/transport", "explicit-detail-match-mode ALL or ANY"},
      {"any of two flags",
       tcp +
           std::string(
               R"("transport": {"config": {"detail-mode": "EXPLICIT", "explicit-detail-match-mode": "ANY", "explicit-tcp-flags": ["TCP_SYN", "TCP_ACK"]}})"),
       "PATH/transport",
       "explicit-detail-match-mode ALL: a rule cannot ask for any of several flags, but for ACK or RST"},
      {"ECE",
       tcp +
           std::string(
               R"("transport": {"config": {"detail-mode": "EXPLICIT", "explicit-tcp-flags": ["TCP_ECE"]}})"),
       "\"TCP_ECE\" at PATH/transport/config/explicit-tcp-flags",
       "no ECE and no CWR: a rule cannot ask for them"},
      {"flags of UDP",
       R"("ipv4": {"config": {"protocol": 17}}, "transport": {"config": {"detail-mode": "EXPLICIT", "explicit-tcp-flags": ["TCP_SYN"]}})",
       "PATH/transport", "protocol 6 beside TCP flags"},
      {"ports of later fragments",
       tcp +
           std::string(
               R"("transport": {"config": {"source-port": 5, "detail-mode": "BUILTIN", "builtin-detail": "FRAGMENT"}})"),
       "PATH/transport", "no ports and no ICMP message beside FRAGMENT: later fragments have none"},
      {"a code of another type",
       R"("ipv4": {"icmpv4": {"config": {"type": "ECHO", "code": "REDIRECT_HOST"}}})",
       "\"REDIRECT_HOST\" at PATH/ipv4/icmpv4/config/code", "a code of the type beside it"},
      {"a type whose number is not said", R"("ipv4": {"icmpv4": {"config": {"type": "8"}}})",
       "\"8\" at PATH/ipv4/icmpv4/config/type",
       "the name of an ICMP type of openconfig-icmpv4-types whose number is known"},
      {"another header", R"("ipv6": {"config": {}})", "an object at PATH/ipv6",
       "no such header in a list of IPv4 rules"},
      {"a label", R"("mpls": {"config": {}})", "an object at PATH/mpls",
       "it left out: a rule cannot ask for a label"},
      {"an interface", R"("input-interface": {"interface-ref": {"config": {"interface": "e"}}})",
       "an object at PATH/input-interface/interface-ref",
       "it left out: a rule cannot ask for an interface: lists are bound to them"},
  };
  for (const auto& row : table) {
    std::string expected = fmt::format("found {}, expected {}\n", row.found, row.expected);
    expected.replace(expected.find("PATH"), 4, entryPath);
    const auto found = readAs(withMatches("ACL_IPV4", row.members));
    EXPECT_EQ(found.substr(std::min(found.find(" ") + 1, found.size())), expected) << row.why;
  }
}

std::string setOf(std::string_view name, std::string_view type, std::string_view entries) {
  return fmt::format(
      R"({{"name": "{0}", "type": "{1}", "config": {{"name": "{0}", "type": "{1}"}}, "acl-entries": {{"acl-entry": [{2}]}}}})",
      name, type, entries);
}
std::string entryOf(uint32_t number, std::string_view action, std::string_view description = "") {
  return fmt::format(
      R"({{"sequence-id": {0}, "config": {{"sequence-id": {0}{2}}}, "actions": {{"config": {{"forwarding-action": "{1}"}}}}}})",
      number, action, description.empty() ? "" : fmt::format(R"(, "description": "{}")", description));
}
std::string documentOf(std::string_view sets, std::string_view interfaces = "") {
  return fmt::format(R"({{"acl": {{"acl-sets": {{"acl-set": [{}]}}, "interfaces": {{"interface": [{}]}}}}}})",
                     sets, interfaces);
}

TEST(OpenConfig, KeepsNumbersAndDescriptions) {
  EXPECT_EQ(readAs(documentOf(setOf("A", "ACL_IPV4",
                                    entryOf(20, "DROP", "[b]: two\\nlines") + "," + entryOf(5, "ACCEPT")))),
            "ip access-list A\n   5 permit ip any any\n   remark [b]: two\n   remark lines\n   20 deny ip "
            "any any\n");
  EXPECT_EQ(readAs(documentOf(setOf(
                "A", "ACL_IPV4", entryOf(5, "ACCEPT") + "," + entryOf(4294967295, "DROP", "implicit-drop")))),
            "ip access-list A\n   5 permit ip any any\n")
      << "the end that we write";
  EXPECT_EQ(readAs(documentOf(setOf("A", "ACL_IPV4", entryOf(0, "ACCEPT")))).substr(0, 60),
            "t:1:145: found 0 at /acl/acl-sets/acl-set[A ACL_IPV4]/acl-en");
  EXPECT_EQ(
      readAs(documentOf(setOf(
          "A", "ACL_IPV4", R"({"sequence-id": 5, "actions": {"config": {"forwarding-action": "ACCEPT"}}})"))),
      "t:1:144: found /acl/acl-sets/acl-set[A ACL_IPV4]/acl-entries/acl-entry[5] incomplete, expected "
      "config/sequence-id, the same as the key\n");
  EXPECT_EQ(readAs(documentOf(setOf("A", "ACL_MIXED", ""))),
            "t:1:49: found \"ACL_MIXED\" at /acl/acl-sets/acl-set[A ACL_MIXED]/type, expected ACL_IPV4, "
            "ACL_IPV6 or ACL_L2: a list looks at one kind of header\n");
  EXPECT_EQ(readAs(documentOf(setOf("A", "ACL_IPV4", "") + "," + setOf("A", "ACL_IPV6", ""))),
            "ip access-list A\nipv6 access-list A\n");
}

TEST(OpenConfig, BindsLists) {
  const std::string sets =
      setOf("A", "ACL_IPV4", "") + "," + setOf("A", "ACL_L2", "") + "," + setOf("B", "ACL_IPV4", "");
  const auto bound = [&](std::string_view reference, std::string_view ingress) {
    const auto text =
        readAs(documentOf(sets, fmt::format("\n{{\"id\": \"x.0\", \"config\": {{\"id\": \"x.0\"}}, "
                                            "{}\"ingress-acl-sets\": {{\"ingress-acl-set\": [{}]}}}}",
                                            reference, ingress)));
    return text.starts_with("t:") ? text : text.substr(std::min(text.find("interface"), text.size()));
  };
  constexpr const char* e = R"("interface-ref": {"config": {"interface": "e", "subinterface": 0}}, )";
  constexpr const char* a =
      R"({"set-name": "A", "type": "ACL_IPV4", "config": {"set-name": "A", "type": "ACL_IPV4"}})";
  constexpr const char* a2 =
      R"({"set-name": "A", "type": "ACL_L2", "config": {"set-name": "A", "type": "ACL_L2"}})";
  constexpr const char* b =
      R"({"set-name": "B", "type": "ACL_IPV4", "config": {"set-name": "B", "type": "ACL_IPV4"}})";
  EXPECT_EQ(bound(e, fmt::format("{}, {}", a, a2)),
            "interface e\n   ip access-group A in\n   mac access-group A in\n");
  EXPECT_NE(bound(e, fmt::format("{}, {}", a, b))
                .find("expected one ip list in interface e: a second one cannot be bound"),
            std::string::npos);
  EXPECT_EQ(bound("", a),
            "t:2:1: found /acl/interfaces/interface[x.0] incomplete, expected "
            "interface-ref/config/interface: the id says no interface\n");
  EXPECT_EQ(bound(R"("interface-ref": {"config": {"interface": "e", "subinterface": 7}}, )", a),
            "t:2:87: found 7 at /acl/interfaces/interface[x.0]/interface-ref/config/subinterface, expected a "
            "number from 0 to 0\n");
  EXPECT_NE(
      bound(e, R"({"set-name": "C", "type": "ACL_IPV4", "config": {"set-name": "C", "type": "ACL_IPV4"}})")
          .find("expected name and type of a list that the document has"),
      std::string::npos);
}

TEST(OpenConfig, NeedsTheKeysOfInterfaces) {
  for (const char* config : {"", R"("config": {}, )"}) {
    EXPECT_EQ(
        readAs(documentOf(setOf("A", "ACL_IPV4", ""),
                          fmt::format("\n{{\"id\": \"x\", {}\"interface-ref\": {{\"config\": "
                                      "{{\"interface\": \"e\"}}}}}}",
                                      config))),
        "t:2:1: found /acl/interfaces/interface[x] incomplete, expected config/id, the same as the key\n");
  }
}

TEST(OpenConfig, KeepsNoStateAndSaysSo) {
  EXPECT_EQ(warningsOf(withMatches(
                "ACL_IPV4",
                R"("state": {"matched-packets": "7"}, "ipv4": {"config": {"protocol": 6}, "state": {}})")),
            fmt::format("3:52 leaf-ignored {0}/state is not kept: it has no effect on traffic\n"
                        "3:123 leaf-ignored {0}/ipv4/state is not kept: it has no effect on traffic\n"
                        "1:50 implicit-end /openconfig-acl:acl/acl-sets/acl-set[A ACL_IPV4] does not say "
                        "what becomes of a packet that no rule of it matches: it is dropped\n",
                        entryPath));
}

}  // namespace
}  // namespace Models
