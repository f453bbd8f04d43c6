#include <agent/config/Names.h>
#include <agent/models/Documents.h>
#include <agent/models/Forms.h>
#include <agent/models/RuleWords.h>
#include <fmt/format.h>

#include <type_traits>

namespace Models {

namespace {

using Acl::Compare;

void writePort(Json& rule, const char* name, const Acl::PortMatch& match) {
  if (match.isAny()) return;
  const auto port = onePort(match);
  rule[fmt::format("{}{}", name, port ? "" : "_RANGE")] =
      port ? std::to_string(*port) : fmt::format("{}-{}", match.ports[0], match.ports[1]);
}

std::string whyNot(const Acl::IpFilterBase& filter) {
  const auto traffic = trafficClassOf(filter);
  if (filter.vlan.named && (filter.vlan.wildcard != 0 || filter.vlan.id == 0 || filter.vlan.id == 4095))
    return "other than one VLAN of 1 to 4094";
  if (!traffic.right) return "a part of DSCP";
  if (traffic.ecn) return "ECN";
  if (!filter.hops.isAny()) return "a TTL";
  if (filter.established) return "one of several TCP flags";
  if (filter.fragments) return "later fragments";
  return {};
}

/// What says that a rule is for the family of its table only.
void writeFamily(Json& rule, bool ip4) { ip4 ? rule["ETHER_TYPE"] = "2048" : rule["IP_TYPE"] = "IPV6ANY"; }

template <class Filter>
Json fields(const Filter& filter, std::string* why) {
  constexpr bool ip4 = std::is_same_v<Filter, Acl::IpFilter>;
  *why = whyNot(filter);
  if (filter.protocolNamed && isExtensionHeader(ip4 ? Acl::AclType::ip : Acl::AclType::ipv6, filter.protocol))
    *why = "an extension header";
  if (!prefixLength(filter.sourceMask) || !prefixLength(filter.destinationMask))
    *why = "addresses that are no prefix";
  Json rule = Json::object();
  writeFamily(rule, ip4);
  if (filter.vlan.named) rule["VLAN_ID"] = std::to_string(filter.vlan.id);
  if (const auto prefix = prefixOf(filter.source, filter.sourceMask))
    rule[ip4 ? "SRC_IP" : "SRC_IPV6"] = *prefix;
  if (const auto prefix = prefixOf(filter.destination, filter.destinationMask))
    rule[ip4 ? "DST_IP" : "DST_IPV6"] = *prefix;
  if (filter.protocolNamed) rule[ip4 ? "IP_PROTOCOL" : "NEXT_HEADER"] = std::to_string(filter.protocol);
  writePort(rule, "L4_SRC_PORT", filter.sourcePort);
  writePort(rule, "L4_DST_PORT", filter.destinationPort);
  if (filter.tcpFlags) rule["TCP_FLAGS"] = fmt::format("0x{0:02x}/0x{0:02x}", filter.tcpFlags);
  if (filter.icmpTypeNamed) rule[ip4 ? "ICMP_TYPE" : "ICMPV6_TYPE"] = std::to_string(filter.icmpType);
  if (filter.icmpCodeNamed) rule[ip4 ? "ICMP_CODE" : "ICMPV6_CODE"] = std::to_string(filter.icmpCode);
  if (const auto traffic = trafficClassOf(filter); traffic.dscp) rule["DSCP"] = std::to_string(*traffic.dscp);
  return rule;
}

Json fields(const Acl::MacFilter&, std::string*) { return Json::object(); }  // there are no such lists

Json entryJson(const Entry& entry, std::string* why) {
  Json rule{{"RULE", fmt::format("RULE_{}", entry.number)}};
  rule.update(std::visit([&](const auto& r) { return fields(r.filter, why); }, entry.rule));
  rule["PACKET_ACTION"] = Config::common(entry.rule).action == Acl::Action::permit ? "FORWARD" : "DROP";
  return rule;
}

Json endJson(const Config::List& list) {
  Json rule{{"RULE", "DEFAULT_RULE"}};
  writeFamily(rule, list.type == Acl::AclType::ip);
  rule["PACKET_ACTION"] = "DROP";
  return rule;
}

/// Whether a list is bound in a direction.
bool isBound(const Config::List& list, const Config::Model& model, Acl::AclDirection direction) {
  for (const auto& [key, name] : model.bindings) {
    if (key.type == list.type && name == list.name && key.direction == direction) return true;
  }
  return false;
}

std::string whyNoList(const Config::List& list, const Config::Model& model) {
  if (list.type == Acl::AclType::mac) return "tables of MAC addresses";
  if (list.name.find('|') != std::string::npos) return "a name with |";
  if (isBound(list, model, Acl::AclDirection::in) && isBound(list, model, Acl::AclDirection::out))
    return "a table that is bound both in and out";
  constexpr size_t most = 900000;  // priorities end at 999999
  return list.rules.size() > most ? "as many rules" : "";
}

Json documentJson(const std::vector<WrittenList>& lists,
                  const std::map<Config::BindingKey, std::string>& bindings) {
  Json tables = Json::object(), rules = Json::object();
  for (const auto& list : lists) {
    Json ports = Json::array();
    bool out = false;
    for (const auto& [key, name] : bindings) {
      if (key.type != list.list->type || name != list.list->name) continue;
      ports.push_back(key.interface);
      out = key.direction == Acl::AclDirection::out;
    }
    tables[list.list->name] = {{"type", list.list->type == Acl::AclType::ip ? "L3" : "L3V6"},
                               {"stage", out ? "egress" : "ingress"},
                               {"ports", ports}};
    size_t priority = list.entries.size();
    for (const Json& entry : list.entries) {
      Json& rule = rules[fmt::format("{}|{}", list.list->name, entry.at("RULE").get<std::string>())];
      rule["PRIORITY"] = std::to_string(priority--);
      for (const auto& [name, field] : entry.items()) {
        if (name != "RULE") rule[name] = field;
      }
    }
  }
  return {{"ACL_TABLE", tables}, {"ACL_RULE", rules}};
}

}  // namespace

const Form& sonicForm() {
  static const Form form{.name = "sonic",
                         .oneNameSpace = true,
                         .whyNoList = whyNoList,
                         .entry = entryJson,
                         .end = endJson,
                         .document = documentJson};
  return form;
}

}  // namespace Models
