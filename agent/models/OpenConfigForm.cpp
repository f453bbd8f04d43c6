#include <agent/models/Documents.h>
#include <agent/models/Forms.h>
#include <agent/models/OpenConfigNames.h>
#include <agent/models/RuleWords.h>
#include <fmt/format.h>

#include <type_traits>

namespace Models {

namespace {

using Acl::Compare;

std::string qualified(std::string_view name) { return fmt::format("{}:{}", openConfigModule, name); }
std::string matchType(std::string_view name) { return fmt::format("openconfig-packet-match-types:{}", name); }

std::string whyNot(const Acl::IpFilterBase& filter) {
  if (!filter.vlan.isAny()) return "a VLAN";
  const auto traffic = trafficClassOf(filter);
  if (!traffic.right) return "a part of DSCP";
  if (traffic.ecn) return "ECN";
  if (!filter.hops.isAny() && filter.hops.op != Compare::eq) return "any but one TTL";
  if (filter.protocolNamed && filter.protocol == 255) return "protocol 255";
  return {};
}

Json portJson(const Acl::PortMatch& match) {
  if (const auto port = onePort(match)) return *port;
  return fmt::format("{}..{}", match.ports[0], match.ports[1]);
}

/// The name of a type, or of a code of a type; empty when the module has none.
std::string icmpName(uint8_t protocol, uint8_t type, int code) {
  const bool ip6 = protocol == Config::protocolIcmpV6;
  for (const auto& row : openConfigIcmp(protocol)) {
    if (row.type == type && row.code == code)
      return fmt::format("openconfig-icmpv{}-types:{}", ip6 ? 6 : 4, row.name);
  }
  return {};
}

Json transportJson(const Acl::IpFilterBase& filter) {
  Json transport = Json::object();
  if (!filter.sourcePort.isAny()) transport["source-port"] = portJson(filter.sourcePort);
  if (!filter.destinationPort.isAny()) transport["destination-port"] = portJson(filter.destinationPort);
  if (filter.established || filter.fragments) {
    transport["detail-mode"] = "BUILTIN";
    transport["builtin-detail"] = filter.established ? "TCP_ESTABLISHED" : "FRAGMENT";
  } else if (filter.tcpFlags) {
    transport["detail-mode"] = "EXPLICIT";
    transport["explicit-detail-match-mode"] = "ALL";
    for (const auto& row : openConfigFlags()) {
      if (filter.tcpFlags & row.number) transport["explicit-tcp-flags"].push_back(matchType(row.name));
    }
  }
  return transport;
}

template <class Filter>
Json matches(const Filter& filter, std::string* why) {
  constexpr bool ip4 = std::is_same_v<Filter, Acl::IpFilter>;
  constexpr uint8_t icmp = ip4 ? Config::protocolIcmp : Config::protocolIcmpV6;
  *why = whyNot(filter);
  if (!prefixLength(filter.sourceMask) || !prefixLength(filter.destinationMask))
    *why = "addresses that are no prefix";
  Json config = Json::object(), message = Json::object(), all = Json::object();
  if (const auto prefix = prefixOf(filter.source, filter.sourceMask)) config["source-address"] = *prefix;
  if (const auto prefix = prefixOf(filter.destination, filter.destinationMask))
    config["destination-address"] = *prefix;
  if (const auto traffic = trafficClassOf(filter); traffic.dscp) config["dscp"] = *traffic.dscp;
  if (filter.protocolNamed) config["protocol"] = filter.protocol;
  if (!filter.hops.isAny()) config["hop-limit"] = filter.hops.value;
  if (filter.icmpTypeNamed) message["type"] = icmpName(icmp, filter.icmpType, Config::IcmpMessage::anyCode);
  if (filter.icmpCodeNamed) message["code"] = icmpName(icmp, filter.icmpType, filter.icmpCode);
  for (const auto& name : message) {
    if (name == "") *why = "an ICMP message that has no name there";
  }
  if (!why->empty()) return {};
  const char* const header = ip4 ? "ipv4" : "ipv6";
  if (!config.empty()) all[header]["config"] = config;
  if (!message.empty()) all[header][ip4 ? "icmpv4" : "icmpv6"]["config"] = message;
  if (const Json transport = transportJson(filter); !transport.empty())
    all["transport"]["config"] = transport;
  return all;
}

Json matches(const Acl::MacFilter& filter, std::string* why) {
  if (!filter.vlan.isAny()) *why = "a VLAN";
  if (!filter.mpls.isAny()) *why = "a label";
  if (!why->empty()) return {};
  Json config = Json::object();
  writeMac(config, "source-mac", "source-mac-mask", filter.source, filter.sourceMask);
  writeMac(config, "destination-mac", "destination-mac-mask", filter.destination, filter.destinationMask);
  if (filter.etherTypeNamed) config["ethertype"] = filter.etherType;
  return config.empty() ? Json::object() : Json{{"l2", {{"config", config}}}};
}

Json entryOf(uint32_t number, std::string_view description, const Json& matched, Acl::Action action,
             bool log) {
  Json all{{"sequence-id", number}, {"config", {{"sequence-id", number}}}};
  if (!description.empty()) all["config"]["description"] = description;
  for (const auto& [name, header] : matched.items()) all[name] = header;
  all["actions"]["config"]["forwarding-action"] =
      qualified(action == Acl::Action::permit ? "ACCEPT" : "DROP");
  if (log) all["actions"]["config"]["log-action"] = qualified("LOG_SYSLOG");
  return all;
}

Json entryJson(const Entry& entry, std::string* why) {
  const auto& base = Config::common(entry.rule);
  const Json matched = std::visit([&](const auto& rule) { return matches(rule.filter, why); }, entry.rule);
  return entryOf(entry.number, base.remark.view(), matched, base.action, base.log);
}

Json endJson(const Config::List&) {
  return entryOf(endNumber, endDescription, Json::object(), Acl::Action::deny, false);
}

std::string whyNoList(const Config::List&, const Config::Model&) { return {}; }

std::string typeName(Acl::AclType type) {
  return qualified(type == Acl::AclType::ip     ? "ACL_IPV4"
                   : type == Acl::AclType::ipv6 ? "ACL_IPV6"
                                                : "ACL_L2");
}

Json documentJson(const std::vector<WrittenList>& lists,
                  const std::map<Config::BindingKey, std::string>& bindings) {
  Json acl{{"acl-sets", {{"acl-set", Json::array()}}}};
  for (const auto& list : lists) {
    const Json key{{"name", list.list->name}, {"type", typeName(list.list->type)}};
    Json set = key;
    set["config"] = key;
    set["acl-entries"] = {{"acl-entry", list.entries}};
    acl["acl-sets"]["acl-set"].push_back(std::move(set));
  }
  std::map<std::string, std::map<Acl::AclDirection, Json>> places;
  for (const auto& [binding, name] : bindings) {
    const Json key{{"set-name", name}, {"type", typeName(binding.type)}};
    Json set = key;
    set["config"] = key;
    places[binding.interface][binding.direction].push_back(std::move(set));
  }
  for (const auto& [interface, directions] : places) {
    Json place{{"id", interface},
               {"config", {{"id", interface}}},
               {"interface-ref", {{"config", {{"interface", interface}}}}}};
    for (const auto& [direction, sets] : directions) {
      const std::string name = direction == Acl::AclDirection::in ? "ingress" : "egress";
      place[name + "-acl-sets"] = {{name + "-acl-set", sets}};
    }
    acl["interfaces"]["interface"].push_back(std::move(place));
  }
  return {{qualified("acl"), acl}};
}

}  // namespace

const Form& openConfigForm() {
  static const Form form{.name = "openconfig",
                         .logs = true,
                         .remarks = true,
                         .whyNoList = whyNoList,
                         .entry = entryJson,
                         .end = endJson,
                         .document = documentJson};
  return form;
}

}  // namespace Models
