#include <agent/config/Names.h>
#include <agent/models/Documents.h>
#include <agent/models/Forms.h>
#include <agent/models/IetfNames.h>
#include <fmt/format.h>

#include <type_traits>

namespace Models {

namespace {

using Acl::Compare;

Json portJson(const Acl::PortMatch& match) {
  if (match.op == Compare::neq) return {{"operator", "neq"}, {"port", match.ports[0]}};
  if (const auto port = onePort(match)) return {{"operator", "eq"}, {"port", *port}};
  if (match.ports[0] == 0) return {{"operator", "lte"}, {"port", match.ports[1]}};
  if (match.ports[1] == 65535) return {{"operator", "gte"}, {"port", match.ports[0]}};
  return {{"lower-port", match.ports[0]}, {"upper-port", match.ports[1]}};
}

/// What the model cannot say of the parts of an IP filter that both families have.
std::string whyNot(const Acl::IpFilterBase& filter) {
  if (!filter.vlan.isAny()) return "a VLAN";
  if (filter.established || filter.tcpFlags) return "TCP flags that are set, whatever others are";
  if (filter.fragments) return "later fragments";
  if (!trafficClassOf(filter).right) return "a part of DSCP";
  if (!filter.hops.isAny() && filter.hops.op != Compare::eq) return "any but one TTL";
  const bool ports = !filter.sourcePort.isAny() || !filter.destinationPort.isAny();
  if (ports && filter.protocol == Config::protocolSctp) return "ports of SCTP";
  return {};
}

template <class Filter>
Json matches(const Filter& filter, std::string* why) {
  constexpr bool ip4 = std::is_same_v<Filter, Acl::IpFilter>;
  *why = whyNot(filter);
  if (!prefixLength(filter.sourceMask) || !prefixLength(filter.destinationMask))
    *why = "addresses that are no prefix";
  if (!why->empty()) return {};
  const auto traffic = trafficClassOf(filter);
  Json header = Json::object(), l4 = Json::object(), all = Json::object();
  if (traffic.dscp) header["dscp"] = *traffic.dscp;
  if (traffic.ecn) header["ecn"] = *traffic.ecn;
  if (!filter.hops.isAny()) header["ttl"] = filter.hops.value;
  if (filter.protocolNamed) header["protocol"] = filter.protocol;
  if (const auto prefix = prefixOf(filter.destination, filter.destinationMask))
    header[ip4 ? "destination-ipv4-network" : "destination-ipv6-network"] = *prefix;
  if (const auto prefix = prefixOf(filter.source, filter.sourceMask))
    header[ip4 ? "source-ipv4-network" : "source-ipv6-network"] = *prefix;
  if (!header.empty()) all[ip4 ? "ipv4" : "ipv6"] = header;
  if (!filter.sourcePort.isAny()) l4["source-port"] = portJson(filter.sourcePort);
  if (!filter.destinationPort.isAny()) l4["destination-port"] = portJson(filter.destinationPort);
  if (filter.icmpTypeNamed) l4["type"] = filter.icmpType;
  if (filter.icmpCodeNamed) l4["code"] = filter.icmpCode;
  if (!l4.empty())
    all[filter.icmpTypeNamed ? "icmp" : filter.protocol == Config::protocolTcp ? "tcp" : "udp"] = l4;
  return all;
}

Json matches(const Acl::MacFilter& filter, std::string* why) {
  if (!filter.vlan.isAny()) *why = "a VLAN";
  if (!filter.mpls.isAny()) *why = "a label";
  if (!why->empty()) return {};
  Json eth = Json::object();
  writeMac(eth, "destination-mac-address", "destination-mac-address-mask", filter.destination,
           filter.destinationMask);
  writeMac(eth, "source-mac-address", "source-mac-address-mask", filter.source, filter.sourceMask);
  if (filter.etherTypeNamed) eth["ethertype"] = filter.etherType;
  return eth.empty() ? Json::object() : Json{{"eth", eth}};
}

std::string qualified(std::string_view name) { return fmt::format("{}:{}", ietfModule, name); }

Json ace(std::string name, const Json& matched, Acl::Action action, bool log) {
  Json all{{"name", std::move(name)}};
  if (!matched.empty()) all["matches"] = matched;
  all["actions"] = {{"forwarding", qualified(action == Acl::Action::permit ? "accept" : "drop")}};
  if (log) all["actions"]["logging"] = qualified("log-syslog");
  return all;
}

Json entryJson(const Entry& entry, std::string* why) {
  const auto& base = Config::common(entry.rule);
  const Json matched = std::visit([&](const auto& rule) { return matches(rule.filter, why); }, entry.rule);
  return ace(std::to_string(entry.number), matched, base.action, base.log);
}

Json endJson(const Config::List&) {
  return ace(std::string(endName), Json::object(), Acl::Action::deny, false);
}

std::string whyNoList(const Config::List& list, const Config::Model&) {
  return list.name.size() > longestIetfName
             ? fmt::format("a name of more than {} characters", longestIetfName)
             : "";
}

std::string_view typeName(Acl::AclType type) {
  for (const auto& row : typeNames) {
    if (row.type == type) return row.name;
  }
  return {};
}

Json documentJson(const std::vector<WrittenList>& lists,
                  const std::map<Config::BindingKey, std::string>& bindings) {
  Json acls{{"acl", Json::array()}};
  for (const auto& list : lists)
    acls["acl"].push_back({{"name", list.list->name},
                           {"type", qualified(typeName(list.list->type))},
                           {"aces", {{"ace", list.entries}}}});
  std::map<std::string, std::map<Acl::AclDirection, Json>> places;
  for (const auto& [key, name] : bindings) places[key.interface][key.direction].push_back({{"name", name}});
  Json interfaces = Json::array();
  for (const auto& [interface, directions] : places) {
    Json place{{"interface-id", interface}};
    for (const auto& [direction, sets] : directions)
      place[direction == Acl::AclDirection::in ? "ingress" : "egress"] = {{"acl-sets", {{"acl-set", sets}}}};
    interfaces.push_back(std::move(place));
  }
  if (!interfaces.empty()) acls["attachment-points"] = {{"interface", interfaces}};
  return {{qualified("acls"), acls}};
}

}  // namespace

const Form& ietfForm() {
  static const Form form{.name = "ietf",
                         .notEqual = true,
                         .logs = true,
                         .oneNameSpace = true,
                         .whyNoList = whyNoList,
                         .entry = entryJson,
                         .end = endJson,
                         .document = documentJson};
  return form;
}

}  // namespace Models
