#include <agent/config/Cursor.h>
#include <agent/config/Names.h>
#include <agent/models/Documents.h>
#include <agent/models/Leaves.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace Models {

namespace {

using Acl::AclType;

/// A rule of ACL_RULE that is being read.
struct SonicRule {
  RuleWords words{};
  DraftRule rule{};
  std::optional<uint32_t> priority{};
  bool ofFamily = false;  ///< it is for packets of the family of its table only, by what it asks for
};

struct Table {
  DraftList list{};
  std::optional<AclType> type{};
  Acl::AclDirection direction = Acl::AclDirection::in;
  std::vector<std::string> ports{};
  const Node* portsNode = nullptr;
  std::map<uint32_t, std::string> priorities{};  ///< the rules that have them
};

// Rules.

uint8_t octet(const Found& found) { return static_cast<uint8_t>(found.number); }
uint16_t word(const Found& found) { return static_cast<uint16_t>(found.number); }

template <AclType type>
void takeAddress(SonicRule& rule, std::string& words, const Found& found) {
  if (rule.words.list != type)
    return found.refuse(fmt::format("no such address in a table of {} rules", typeText(rule.words.list)));
  words = prefixWords(type, found);
  rule.ofFamily = true;
}

void takeAction(SonicRule& rule, const Found& found) {
  if (found.text == "FORWARD") {
    rule.words.action = Acl::Action::permit;
  } else if (found.text == "DROP") {
    rule.words.action = Acl::Action::deny;
  } else {
    found.refuse("FORWARD or DROP: a rule does nothing else with a packet");
  }
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
  number = octet(found);
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
    {"PACKET_ACTION", Kind::text, takeAction},
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
    digits<SonicRule>("IP_PROTOCOL", 0, 255,
                      [](SonicRule& r, const Found& f) { r.words.protocolIs(octet(f), f); }),
    digits<SonicRule>("NEXT_HEADER", 0, 255,
                      [](SonicRule& r, const Found& f) {
                        if (r.words.list != AclType::ipv6) return f.refuse("it in tables of IPv6 rules only");
                        r.words.protocolIs(octet(f), f);
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
    digits<SonicRule>("DSCP", 0, 63, [](SonicRule& r, const Found& f) { r.words.dscp = octet(f); }),
    digits<SonicRule>("VLAN_ID", 1, 4094, [](SonicRule& r, const Found& f) { r.words.vlan = word(f); }),
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

void readRule(Table& table, std::string_view name, const Found& found) {
  SonicRule rule;
  rule.words.list = *table.type;
  rule.rule.at = found.node.at;
  readLeaves(found, ruleTable, rule);
  if (!rule.priority) return found.miss("its PRIORITY");
  if (rule.words.action == Acl::Action::deny && !rule.ofFamily) {
    return found.miss(
        fmt::format("an address, ETHER_TYPE or IP_TYPE: without them it would drop more than {} packets",
                    typeText(*table.type)));
  }
  const auto [known, added] = table.priorities.emplace(*rule.priority, name);
  if (!added)
    return found.refuse(fmt::format("a PRIORITY that {} does not have, too: which is tried first is not said",
                                    known->second));
  if (!rule.words.tcp.empty() && rule.words.protocol != Config::protocolTcp)
    return found.miss("IP_PROTOCOL 6 beside TCP_FLAGS");
  rule.rule.words = rule.words.text(found);
  rule.rule.isEverything = rule.words.isEverything();
  rule.rule.isEnd = name == defaultRule && rule.rule.words == "deny " + everything(*table.type);
  rule.rule.name = name;
  if (name.starts_with(numberedRule)) rule.rule.name = name.substr(numberedRule.size());
  rule.rule.number = *rule.priority;  // until all are sorted
  table.list.rules.push_back(std::move(rule.rule));
}

// Tables.

void takeType(Table& table, const Found& found) {
  if (found.text == "L3" || found.text == "l3") {
    table.type = AclType::ip;
  } else if (found.text == "L3V6" || found.text == "l3v6") {
    table.type = AclType::ipv6;
  } else {
    found.refuse("L3 or L3V6: a list looks at one kind of header, and filters what is forwarded");
  }
}

void takeStage(Table& table, const Found& found) {
  if (found.text == "egress" || found.text == "EGRESS") {
    table.direction = Acl::AclDirection::out;
  } else if (found.text != "ingress" && found.text != "INGRESS") {
    found.refuse("ingress or egress");
  }
}

/// An array of names, or one text with commas.
void takePorts(Table& table, const Found& found) {
  table.portsNode = &found.node;
  const auto one = [&](const Node& node, std::string_view name) {
    const Found port{node, found.path, found.report, found.module, name};
    if (checkName(name, port)) table.ports.emplace_back(name);
  };
  if (found.node.kind == Node::Kind::array) {
    for (const Node& port : found.node.members) {
      if (port.kind != Node::Kind::text) return found.refuse("an array of names");
      one(port, port.value);
    }
    return;
  }
  if (found.node.kind != Node::Kind::text) return found.refuse("an array of names, or a text with commas");
  for (std::string_view rest = found.node.value; !rest.empty();) {
    const size_t end = std::min(rest.find(','), rest.size());
    one(found.node, rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
}

constexpr Row<Table> tableTable[] = {
    {"type", Kind::text, takeType},
    {"TYPE", Kind::text, takeType},
    {"policy_desc", Kind::ignored},
    {"POLICY_DESC", Kind::ignored},
    {"stage", Kind::text, takeStage},
    {"STAGE", Kind::text, takeStage},
    {"ports", Kind::whole, takePorts},
    {"PORTS", Kind::whole, takePorts},
    {"ports@", Kind::whole, takePorts},
    {"services", Kind::refused, nullptr, "packets to services of the switch are not filtered by lists"},
};

/// The tables and rules of a document: each a node with its key behind the name of its table, "NAME" or
/// "TABLE|RULE".
struct Database {
  struct Row {
    std::string key;
    const Node* node;
    std::string path;
  };
  std::vector<Row> tables, rules;
};

/// Both ways of writing: tables of rows, and rows whose keys begin with the table's name.
Database sorted(const Found& document) {
  Database all;
  for (const Node& node : document.node.members) {
    const auto path = fmt::format("/{}", printable(node.name));
    for (const auto& [name, rows] :
         {std::pair("ACL_TABLE", &all.tables), std::pair("ACL_RULE", &all.rules)}) {
      const std::string prefix = fmt::format("{}|", name);
      if (node.name == name && node.kind != Node::Kind::object)
        document.below(node, path).refuse("an object");
      if (node.name == name) {
        for (const Node& row : node.members)
          rows->push_back({row.name, &row, fmt::format("{}/{}", path, printable(row.name))});
      } else if (node.name.starts_with(prefix)) {
        rows->push_back({node.name.substr(prefix.size()), &node, path});
      }
    }
    if (!isSonicTable(node.name)) {
      const bool filters = node.name.starts_with("ACL_") || node.name.starts_with("MIRROR_SESSION");
      const auto found = document.below(node, path);
      if (filters) {
        found.refuse("no such table: lists cannot do what it is for");
      } else {
        document.report.warn(node.at, "leaf-ignored",
                             fmt::format("{} is not kept: no access list is in it", path));
      }
    }
  }
  return all;
}

void bind(const Table& table, const Found& found, DraftBindings& bindings, Lines& lines) {
  for (const auto& port : table.ports)
    bindings.add({*table.type, table.direction, port}, table.list.name,
                 found.below(*table.portsNode, found.path + "/ports"), lines);
}

}  // namespace

bool isSonicTable(std::string_view name) {
  return name == "ACL_TABLE" || name == "ACL_RULE" || name.starts_with("ACL_TABLE|") ||
         name.starts_with("ACL_RULE|");
}

void readSonic(const Found& document, Lines& lines) {
  const Database all = sorted(document);
  std::map<std::string, Table, std::less<>> tables;
  for (const auto& row : all.tables) {
    const Found found = document.below(*row.node, row.path);
    Table table;
    table.list.name = row.key;
    table.list.at = row.node->at;
    table.list.path = row.path;
    table.list.restPasses = true;
    const Found name{*row.node, row.path, found.report, found.module, row.key};
    checkName(row.key, name);
    readLeaves(found, tableTable, table);
    if (table.type) table.list.type = *table.type;
    if (!row.node->find("type") && !row.node->find("TYPE")) found.miss("its type");
    if (!tables.emplace(row.key, std::move(table)).second) found.twice();
  }
  std::map<std::string_view, bool> seen;
  for (const auto& row : all.rules) {
    const Found found = document.below(*row.node, row.path);
    const size_t bar = row.key.find('|');
    const auto table =
        bar == std::string::npos ? tables.end() : tables.find(std::string_view(row.key).substr(0, bar));
    if (table == tables.end()) {
      found.miss("its table in ACL_TABLE, which says of which kind and where it is");
    } else if (!seen.emplace(row.key, true).second) {
      found.twice();
    } else if (table->second.type) {
      readRule(table->second, std::string_view(row.key).substr(bar + 1), found);
    }
  }
  DraftBindings bindings;
  for (auto& [name, table] : tables) {
    if (!table.type) continue;
    auto& rules = table.list.rules;
    std::stable_sort(rules.begin(), rules.end(),
                     [](const auto& a, const auto& b) { return a.number > b.number; });
    for (auto& rule : rules) rule.number = 0;
    write(table.list, lines, document.report);
  }
  for (const auto& row : all.tables) {
    const auto& table = tables.at(row.key);
    if (table.type) bind(table, document.below(*row.node, row.path), bindings, lines);
  }
}

}  // namespace Models
