#include <agent/config/Cursor.h>
#include <agent/models/EntryDraft.h>
#include <agent/models/OpenConfigEntry.h>
#include <agent/models/OpenConfigNames.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <span>

namespace Models {

namespace {

using Acl::AclType;

constexpr std::string_view anyPort = "ANY";

/// An entry of a list that is being read.
struct AclEntry : EntryDraft {
  uint32_t key = 0;
  std::optional<std::string> mode{}, flagMode{}, builtin{};
  std::vector<std::string> flags{};
};

/// A leaf that is a number or a name for one; the names may have the module in front that they are of.
std::optional<uint32_t> numberOf(const Found& found, std::span<const Config::NamedNumber> names,
                                 std::string_view module) {
  if (found.node.kind == Node::Kind::number) return Config::decimal(found.node.value);
  auto text = found.text;
  if (found.node.valueModule == module) text.remove_prefix(module.size() + 1);
  for (const auto& row : names) {
    if (row.name == text) return row.number;
  }
  return std::nullopt;
}

constexpr std::string_view matchTypes = "openconfig-packet-match-types";

void takeProtocol(AclEntry& entry, const Found& found) {
  const auto number = numberOf(found, openConfigProtocols(), matchTypes);
  if (!number || *number > 254)
    return found.refuse("a number from 0 to 254, or a name of a protocol as IP_TCP");
  entry.words.protocolIs(static_cast<uint8_t>(*number), found);
}

void takeEtherType(AclEntry& entry, const Found& found) {
  const auto number = numberOf(found, openConfigEtherTypes(), matchTypes);
  if (!number || *number > 0xffff)
    return found.refuse("a number from 1536 to 65535, or a name as ETHERTYPE_ARP");
  entry.words.etherTypeIs(static_cast<uint16_t>(*number), found);
}

void takeDscpSet(AclEntry& entry, const Found& found) {
  const auto number =
      found.node.kind == Node::Kind::number ? Config::decimal(found.node.value) : std::nullopt;
  if (!number || *number > 63) return found.refuse("a number from 0 to 63");
  if (entry.words.dscp) return found.refuse("one DSCP: a rule cannot ask for one of several");
  entry.words.dscp = static_cast<uint8_t>(*number);
}

void takeDscp(AclEntry& entry, const Found& found) {
  if (entry.words.dscp) return found.refuse("either dscp or dscp-set");
  entry.words.dscp = found.octet();
}

const Config::IcmpMessage* icmpNamed(const AclEntry& entry, const Found& found, bool code) {
  const bool ip6 = entry.words.list == AclType::ipv6;
  const std::string_view module = ip6 ? "openconfig-icmpv6-types" : "openconfig-icmpv4-types";
  auto text = found.text;
  if (found.node.valueModule == module) text.remove_prefix(module.size() + 1);
  for (const auto& row : openConfigIcmp(icmpOf(entry.words.list))) {
    if (row.name == text && (row.code != Config::IcmpMessage::anyCode) == code) return &row;
  }
  found.refuse(
      fmt::format("the name of an ICMP {} of {} whose number is known", code ? "code" : "type", module));
  return nullptr;
}

void takeIcmpType(AclEntry& entry, const Found& found) {
  entry.words.protocolIs(icmpOf(entry.words.list), found);
  if (const auto* row = icmpNamed(entry, found, false)) entry.words.icmpType = row->type;
}

void takeIcmpCode(AclEntry& entry, const Found& found) {
  entry.words.protocolIs(icmpOf(entry.words.list), found);
  const auto* row = icmpNamed(entry, found, true);
  if (!row) return;
  if (!entry.words.icmpType || *entry.words.icmpType != row->type)
    return found.refuse("a code of the type beside it");
  entry.words.icmpCode = static_cast<uint8_t>(row->code);
}

/// "PORT", "LOW..HIGH" or "ANY".
void takePort(PortWords& ports, const Found& found) {
  ports.at = found.node.at;
  ports.path = found.path;
  if (found.text == anyPort) return;
  const bool isNumber = found.node.kind == Node::Kind::number;
  const std::string_view text = found.node.value;
  const size_t dots = isNumber ? std::string_view::npos : text.find("..");
  const auto low = Config::decimal(text.substr(0, dots));
  const auto high = dots == std::string_view::npos ? low : Config::decimal(text.substr(dots + 2));
  const bool right =
      low && high && *high <= 65535 && *low <= *high && (isNumber || dots != std::string_view::npos);
  if (!right) return found.refuse("a port as a number, \"LOW..HIGH\" or \"ANY\"");
  ports.words = isNumber ? fmt::format("eq {}", *low) : fmt::format("range {} {}", *low, *high);
}

void takeFlag(AclEntry& entry, const Found& found) {
  const auto flag = numberOf(found, openConfigFlags(), matchTypes);
  if (!flag || found.node.kind == Node::Kind::number)
    return found.refuse("the name of a TCP flag, as TCP_SYN");
  constexpr uint32_t known = 0x3f;
  if (*flag & ~known) return found.refuse("no ECE and no CWR: a rule cannot ask for them");
  const auto text = found.text.substr(found.text.find('_') + 1);
  std::string word(text);
  std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return std::tolower(c); });
  if (std::find(entry.flags.begin(), entry.flags.end(), word) == entry.flags.end())
    entry.flags.push_back(word);
}

constexpr ActionNames actionNames = {
    .permit = "ACCEPT", .deny = "DROP", .reject = "REJECT", .log = "LOG_SYSLOG", .noLog = "LOG_NONE"};

template <AclType type>
void takeHeader(AclEntry& entry, const Found& found) {
  entry.words.headerIs(type, found);
}

void takeTransport(AclEntry& entry, const Found& found) {
  if (entry.words.list == AclType::mac) found.refuse(onlyEthernet);
}

constexpr std::string_view noSets = "sets are not taken: write the rule once for each member";

constexpr Row<AclEntry> entryTable[] = {
    number<AclEntry>("sequence-id", 1, 0xffffffff, [](AclEntry& e, const Found& f) { e.key = f.number; }),
    number<AclEntry>("config/sequence-id", 1, 0xffffffff,
                     [](AclEntry& e, const Found& f) { e.rule.number = f.number; }),
    {"config/description", Kind::text,
     [](AclEntry& e, const Found& f) { e.rule.remarks.emplace_back(f.text); }},
    {"state", Kind::ignored},
    {"l2", Kind::inside, takeHeader<AclType::mac>},
    {"l2/config/source-mac", Kind::text,
     [](AclEntry& e, const Found& f) { e.words.sourceMac.address = macText(f); }},
    {"l2/config/source-mac-mask", Kind::text,
     [](AclEntry& e, const Found& f) { e.words.sourceMac.mask = macText(f); }},
    {"l2/config/destination-mac", Kind::text,
     [](AclEntry& e, const Found& f) { e.words.destinationMac.address = macText(f); }},
    {"l2/config/destination-mac-mask", Kind::text,
     [](AclEntry& e, const Found& f) { e.words.destinationMac.mask = macText(f); }},
    {"l2/config/ethertype", Kind::any, takeEtherType},
    {"l2/state", Kind::ignored},
    {"mpls", Kind::refused, nullptr, "a rule cannot ask for a label"},
    {"ipv4", Kind::inside, takeHeader<AclType::ip>},
    {"ipv4/config/source-address", Kind::text,
     [](AclEntry& e, const Found& f) { e.words.source = prefixWords(AclType::ip, f); }},
    {"ipv4/config/destination-address", Kind::text,
     [](AclEntry& e, const Found& f) { e.words.destination = prefixWords(AclType::ip, f); }},
    {"ipv4/config/source-address-prefix-set", Kind::refused, nullptr, noSets},
    {"ipv4/config/destination-address-prefix-set", Kind::refused, nullptr, noSets},
    {"ipv4/config/fragment-offsets", Kind::refused, nullptr,
     "later fragments are asked for by builtin-detail FRAGMENT"},
    number<AclEntry>("ipv4/config/dscp", 0, 63, takeDscp),
    {"ipv4/config/dscp-set", Kind::values, takeDscpSet},
    {"ipv4/config/length", Kind::refused, nullptr, noPacketLength},
    {"ipv4/config/protocol", Kind::any, takeProtocol},
    number<AclEntry>("ipv4/config/hop-limit", 0, 255,
                     [](AclEntry& e, const Found& f) { e.words.hops = f.octet(); }),
    {"ipv4/state", Kind::ignored},
    {"ipv4/icmpv4/config/type", Kind::any, takeIcmpType},
    {"ipv4/icmpv4/config/code", Kind::any, takeIcmpCode},
    {"ipv4/icmpv4/state", Kind::ignored},
    {"ipv6", Kind::inside, takeHeader<AclType::ipv6>},
    {"ipv6/config/source-address", Kind::text,
     [](AclEntry& e, const Found& f) { e.words.source = prefixWords(AclType::ipv6, f); }},
    {"ipv6/config/destination-address", Kind::text,
     [](AclEntry& e, const Found& f) { e.words.destination = prefixWords(AclType::ipv6, f); }},
    {"ipv6/config/source-address-prefix-set", Kind::refused, nullptr, noSets},
    {"ipv6/config/destination-address-prefix-set", Kind::refused, nullptr, noSets},
    {"ipv6/config/source-flow-label", Kind::refused, nullptr, noFlowLabel},
    {"ipv6/config/destination-flow-label", Kind::refused, nullptr, noFlowLabel},
    number<AclEntry>("ipv6/config/dscp", 0, 63, takeDscp),
    {"ipv6/config/dscp-set", Kind::values, takeDscpSet},
    {"ipv6/config/length", Kind::refused, nullptr, noPacketLength},
    {"ipv6/config/protocol", Kind::any, takeProtocol},
    number<AclEntry>("ipv6/config/hop-limit", 0, 255,
                     [](AclEntry& e, const Found& f) { e.words.hops = f.octet(); }),
    {"ipv6/state", Kind::ignored},
    {"ipv6/icmpv6/config/type", Kind::any, takeIcmpType},
    {"ipv6/icmpv6/config/code", Kind::any, takeIcmpCode},
    {"ipv6/icmpv6/state", Kind::ignored},
    {"transport", Kind::inside, takeTransport},
    {"transport/config/source-port", Kind::any,
     [](AclEntry& e, const Found& f) { takePort(e.words.sourcePorts, f); }},
    {"transport/config/destination-port", Kind::any,
     [](AclEntry& e, const Found& f) { takePort(e.words.destinationPorts, f); }},
    {"transport/config/source-port-set", Kind::refused, nullptr, noSets},
    {"transport/config/destination-port-set", Kind::refused, nullptr, noSets},
    {"transport/config/detail-mode", Kind::text, [](AclEntry& e, const Found& f) { e.mode = f.text; }},
    {"transport/config/explicit-detail-match-mode", Kind::text,
     [](AclEntry& e, const Found& f) { e.flagMode = f.text; }},
    {"transport/config/explicit-tcp-flags", Kind::values, takeFlag},
    {"transport/config/builtin-detail", Kind::text, [](AclEntry& e, const Found& f) { e.builtin = f.text; }},
    {"transport/state", Kind::ignored},
    {"input-interface/config", Kind::ignored},
    {"input-interface/state", Kind::ignored},
    {"input-interface/interface-ref", Kind::refused, nullptr, noInterface},
    {"actions/config/forwarding-action", Kind::identity,
     [](AclEntry& e, const Found& f) { e.words.actionIs(actionNames, f); }},
    {"actions/config/log-action", Kind::identity,
     [](AclEntry& e, const Found& f) { e.words.logIs(actionNames, f); }},
    {"actions/state", Kind::ignored},
};

/// TCP flags and built-in conditions, which several leaves say together. The words, or what would be right.
std::string detailWords(AclEntry& entry, std::string* expected) {
  if (!entry.mode && !entry.flagMode && !entry.builtin && entry.flags.empty()) return {};
  if (entry.flagMode && entry.flagMode != "ALL" && entry.flagMode != "ANY") {
    *expected = "explicit-detail-match-mode ALL or ANY";
    return {};
  }
  if (entry.mode == "BUILTIN" && entry.flags.empty() && !entry.flagMode) {
    if (entry.builtin == "TCP_ESTABLISHED") return "established";
    entry.words.fragments = entry.builtin == "FRAGMENT";
    if (!entry.words.fragments)
      *expected = "builtin-detail TCP_ESTABLISHED or FRAGMENT: a rule cannot ask that a flag is clear";
    return {};
  }
  if (entry.mode != "EXPLICIT" || entry.builtin || entry.flags.empty()) {
    *expected = "detail-mode EXPLICIT with explicit-tcp-flags, or BUILTIN with builtin-detail";
    return {};
  }
  std::sort(entry.flags.begin(), entry.flags.end());
  if (entry.flags.size() == 1 || entry.flagMode == "ALL")
    return fmt::format("{}", fmt::join(entry.flags, " "));
  if (entry.flagMode == "ANY" && entry.flags == std::vector<std::string>{"ack", "rst"}) return "established";
  *expected =
      "explicit-detail-match-mode ALL: a rule cannot ask for any of several flags, but for ACK or RST";
  return {};
}

void takeDetails(AclEntry& entry, const Found& found) {
  std::string expected;
  entry.words.tcp = detailWords(entry, &expected);
  if (!entry.words.tcp.empty() && entry.words.protocol != Config::protocolTcp)
    expected = "protocol 6 beside TCP flags";
  if (entry.words.fragments &&
      (entry.words.sourcePorts.given() || entry.words.destinationPorts.given() || entry.words.icmpType))
    expected = "no ports and no ICMP message beside FRAGMENT: later fragments have none";
  if (!expected.empty()) found.report.mistake(found.node.at, found.path + "/transport", expected);
}

}  // namespace

std::optional<DraftRule> openConfigEntry(AclType list, const Found& found) {
  AclEntry entry;
  if (!readEntry(found, list, entryTable, entry)) return std::nullopt;
  if (entry.rule.number == 0 || entry.rule.number != entry.key) {
    found.miss("config/sequence-id, the same as the key");
    return std::nullopt;
  }
  takeDetails(entry, found);
  entry.wordsAreRead(found);
  entry.rule.isEnd = entry.rule.number == endNumber && entry.dropsAll() &&
                     entry.rule.remarks == std::vector<std::string>{std::string(endDescription)};
  return std::move(entry.rule);
}

}  // namespace Models
