#include <agent/config/Cursor.h>
#include <agent/config/Names.h>
#include <agent/models/EntryDraft.h>
#include <agent/models/SonicRule.h>
#include <fmt/format.h>

#include <algorithm>

namespace Models {

namespace {

using Acl::AclType;

/// A rule of ACL_RULE that is being read.
struct SonicRule : EntryDraft {
  std::optional<uint32_t> priority{};
  bool ofFamily = false;  ///< it is for packets of the family of its table only, by what it asks for
};

template <AclType type>
void takeAddress(SonicRule& rule, std::string& words, const Found& found) {
  if (rule.words.list != type)
    return found.refuse(fmt::format("no such address in a table of {} rules", typeText(rule.words.list)));
  words = prefixWords(type, found);
  rule.ofFamily = true;
}

constexpr ActionNames actionNames = {.permit = "FORWARD", .deny = "DROP"};

/// Switches look at the header behind that of IPv6, whatever it is.
void takeProtocol(SonicRule& rule, const Found& found) {
  if (isExtensionHeader(rule.words.list, found.octet()))
    return found.refuse("no extension header: a rule looks at the protocol behind them");
  rule.words.protocolIs(found.octet(), found);
}

/// "8080".
template <PortWords RuleWords::*side>
void takePort(SonicRule& rule, const Found& found) {
  if ((rule.words.*side).given()) return found.refuse("either a port or a range");
  rule.words.*side = {fmt::format("eq {}", found.number), found.node.at, found.path};
}

/// "8081-8090".
template <PortWords RuleWords::*side>
void takeRange(SonicRule& rule, const Found& found) {
  const size_t dash = std::min(found.text.find('-'), found.text.size());
  const auto low = Config::decimal(found.text.substr(0, dash));
  const auto high = Config::decimal(found.text.substr(std::min(dash + 1, found.text.size())));
  if (!low || !high || *high > 65535 || *low > *high)
    return found.refuse("\"LOW-HIGH\", ports from 0 to 65535");
  if ((rule.words.*side).given()) return found.refuse("either a port or a range");
  rule.words.*side = {fmt::format("range {} {}", *low, *high), found.node.at, found.path};
}

/// "0x10/0x12": the flags that are set, of those that are compared.
void takeFlags(SonicRule& rule, const Found& found) {
  const size_t slash = std::min(found.text.find('/'), found.text.size());
  const auto value = Config::hexadecimal(found.text.substr(0, slash));
  const auto mask = Config::hexadecimal(found.text.substr(std::min(slash + 1, found.text.size())));
  if (!value || !mask || *mask > 0xff || *value > 0xff) return found.refuse("\"0xFLAGS/0xMASK\"");
  if (*value != *mask || (*value & 0xc0) || *value == 0)
    return found.refuse("the same flags and mask, FIN to URG: a rule can only ask that flags are set");
  constexpr std::string_view words[] = {"fin", "syn", "rst", "psh", "ack", "urg"};
  for (size_t i = 0; i < std::size(words); ++i) {
    if (*value & (1u << i))
      rule.words.tcp += fmt::format("{}{}", rule.words.tcp.empty() ? "" : " ", words[i]);
  }
}

template <uint8_t protocol>
void takeIcmp(SonicRule& rule, std::optional<uint8_t>& number, const Found& found) {
  if (icmpOf(rule.words.list) != protocol)
    return found.refuse(fmt::format("no such message in a table of {} rules", typeText(rule.words.list)));
  rule.words.protocolIs(protocol, found);
  number = found.octet();
}

/// What a table of the family cannot see is refused; what says the family of the table says nothing more.
void takeEtherType(SonicRule& rule, const Found& found) {
  const auto type =
      Config::looksHexadecimal(found.text) ? Config::hexadecimal(found.text) : Config::decimal(found.text);
  const uint32_t own = rule.words.list == AclType::ip ? 0x0800 : 0x86dd;
  if (!type || *type != own)
    return found.refuse(fmt::format("\"0x{:04x}\": a table of {} rules sees no other packets", own,
                                    typeText(rule.words.list)));
  rule.ofFamily = true;
}

void takeIpType(SonicRule& rule, const Found& found) {
  const std::string_view own = rule.words.list == AclType::ip ? "IPV4ANY" : "IPV6ANY";
  const std::string_view same = rule.words.list == AclType::ip ? "IPV4" : "IPV6";
  if (found.text == own || found.text == same) {
    rule.ofFamily = true;
  } else if (found.text != "ANY" && found.text != "IP") {
    found.refuse(
        fmt::format("{}: a table of {} rules sees no other packets", own, typeText(rule.words.list)));
  }
}

constexpr std::string_view noPorts = "a rule cannot ask for a port: tables are bound to them";
constexpr std::string_view noTunnel = "a rule cannot look into a tunnel";
constexpr std::string_view noMirror = "packets are not mirrored into tunnels";

constexpr Row<SonicRule> ruleTable[] = {
    digits<SonicRule>("PRIORITY", 0, 0xffffffff, [](SonicRule& r, const Found& f) { r.priority = f.number; }),
    {"PACKET_ACTION", Kind::text, [](SonicRule& r, const Found& f) { r.words.actionIs(actionNames, f); }},
    {"ETHER_TYPE", Kind::text, takeEtherType},
    {"IP_TYPE", Kind::text, takeIpType},
    {"SRC_IP", Kind::text,
     [](SonicRule& r, const Found& f) { takeAddress<AclType::ip>(r, r.words.source, f); }},
    {"DST_IP", Kind::text,
     [](SonicRule& r, const Found& f) { takeAddress<AclType::ip>(r, r.words.destination, f); }},
    {"SRC_IPV6", Kind::text,
     [](SonicRule& r, const Found& f) { takeAddress<AclType::ipv6>(r, r.words.source, f); }},
    {"DST_IPV6", Kind::text,
     [](SonicRule& r, const Found& f) { takeAddress<AclType::ipv6>(r, r.words.destination, f); }},
    digits<SonicRule>("IP_PROTOCOL", 0, 255, takeProtocol),
    digits<SonicRule>("NEXT_HEADER", 0, 255,
                      [](SonicRule& r, const Found& f) {
                        if (r.words.list != AclType::ipv6) return f.refuse("it in tables of IPv6 rules only");
                        takeProtocol(r, f);
                      }),
    digits<SonicRule>("L4_SRC_PORT", 0, 65535, takePort<&RuleWords::sourcePorts>),
    digits<SonicRule>("L4_DST_PORT", 0, 65535, takePort<&RuleWords::destinationPorts>),
    {"L4_SRC_PORT_RANGE", Kind::text, takeRange<&RuleWords::sourcePorts>},
    {"L4_DST_PORT_RANGE", Kind::text, takeRange<&RuleWords::destinationPorts>},
    {"TCP_FLAGS", Kind::text, takeFlags},
    digits<SonicRule>("ICMP_TYPE", 0, 255,
                      [](SonicRule& r, const Found& f) { takeIcmp<1>(r, r.words.icmpType, f); }),
    digits<SonicRule>("ICMP_CODE", 0, 255,
                      [](SonicRule& r, const Found& f) { takeIcmp<1>(r, r.words.icmpCode, f); }),
    digits<SonicRule>("ICMPV6_TYPE", 0, 255,
                      [](SonicRule& r, const Found& f) { takeIcmp<58>(r, r.words.icmpType, f); }),
    digits<SonicRule>("ICMPV6_CODE", 0, 255,
                      [](SonicRule& r, const Found& f) { takeIcmp<58>(r, r.words.icmpCode, f); }),
    digits<SonicRule>("DSCP", 0, 63, [](SonicRule& r, const Found& f) { r.words.dscp = f.octet(); }),
    digits<SonicRule>("VLAN_ID", 1, 4094, [](SonicRule& r, const Found& f) { r.words.vlan = f.word(); }),
    {"TC", Kind::refused, nullptr, "a rule cannot ask for a traffic class of the switch"},
    {"IN_PORTS", Kind::refused, nullptr, noPorts},
    {"OUT_PORTS", Kind::refused, nullptr, noPorts},
    {"TUNNEL_VNI", Kind::refused, nullptr, noTunnel},
    {"INNER_ETHER_TYPE", Kind::refused, nullptr, noTunnel},
    {"INNER_IP_PROTOCOL", Kind::refused, nullptr, noTunnel},
    {"INNER_L4_SRC_PORT", Kind::refused, nullptr, noTunnel},
    {"INNER_L4_DST_PORT", Kind::refused, nullptr, noTunnel},
    {"MIRROR_ACTION", Kind::refused, nullptr, noMirror},
    {"MIRROR_INGRESS_ACTION", Kind::refused, nullptr, noMirror},
    {"MIRROR_EGRESS_ACTION", Kind::refused, nullptr, noMirror},
    {"REDIRECT_ACTION", Kind::refused, nullptr, "a rule does nothing with a packet but permit and deny it"},
};

/// The name that tables of rules commonly have for the rule that drops the rest.
constexpr std::string_view defaultRule = "DEFAULT_RULE";
constexpr std::string_view numberedRule = "RULE_";

}  // namespace

std::optional<DraftRule> sonicRule(AclType list, std::string_view name,
                                   std::map<uint32_t, std::string>& priorities, const Found& found) {
  SonicRule rule;
  if (!readEntry(found, list, ruleTable, rule)) return std::nullopt;
  if (!rule.priority) {
    found.miss("its PRIORITY");
    return std::nullopt;
  }
  if (rule.words.action == Acl::Action::deny && !rule.ofFamily) {
    found.miss(
        fmt::format("an address, ETHER_TYPE or IP_TYPE: without them it would drop more than {} packets",
                    typeText(list)));
  }
  const auto [known, added] = priorities.emplace(*rule.priority, name);
  if (!added)
    found.refuse(fmt::format("a PRIORITY that {} does not have, too: which is tried first is not said",
                             known->second));
  if (!rule.words.tcp.empty() && rule.words.protocol != Config::protocolTcp)
    found.miss("IP_PROTOCOL 6 beside TCP_FLAGS");
  rule.wordsAreRead(found);
  rule.rule.isEnd = name == defaultRule && rule.dropsAll();
  rule.rule.name = name.substr(name.starts_with(numberedRule) ? numberedRule.size() : 0);
  rule.rule.number = *rule.priority;
  return std::move(rule.rule);
}

}  // namespace Models
