#include <agent/config/Addresses.h>
#include <agent/config/Names.h>
#include <agent/config/Nearest.h>
#include <agent/config/Qualifiers.h>
#include <agent/config/Rules.h>
#include <fmt/format.h>

#include <type_traits>

namespace Config {

namespace {

using Acl::AclType;

template <class Rule>
constexpr AclType listOf = std::is_same_v<Rule, Acl::IpRule> ? AclType::ip : AclType::ipv6;

bool failProtocol(Cursor& at, std::string_view any, AclType list) {
  auto names = namesOf(protocolNames());
  names.push_back(any);
  const auto word = at.peek();
  const bool othersWord = word == "ip" || word == "ipv4" || word == "ipv6";
  if (othersWord) names.clear();
  return at.fail(orNearest(fmt::format("{}, tcp, udp, {}, sctp, another protocol name or 0 to 255", any,
                                       list == AclType::ip ? "icmp" : "icmpv6"),
                           word, names),
                 !othersWord           ? ""
                 : list == AclType::ip ? "in an IPv4 list"
                                       : "in an IPv6 list");
}

/// The protocols of the two families differ, and packets of the other family's are hardly ever seen.
void warnOfIcmp(Cursor& at, AclType list) {
  const bool ip6 = list == AclType::ipv6;
  if (at.peek() != (ip6 ? "icmp" : "icmpv6")) return;
  at.warn(at.position(), "icmp-of-other-kind",
          fmt::format(
              "{} in an IPv{} list is protocol {}, which hardly any IPv{} packet has: that of IPv{} is {}",
              at.peek(), ip6 ? 6 : 4, ip6 ? 1 : 58, ip6 ? 6 : 4, ip6 ? 6 : 4, ip6 ? "icmpv6" : "icmp"));
}

/// `ip` or `ipv4` in an IPv4 list and `ipv6` in an IPv6 list mean any protocol. The words of the other kind
/// are mistakes: some readers would take them for a protocol number (41, IPv6 in IPv4) and some for "any".
bool readProtocol(Cursor& at, AclType list, Acl::IpFilterBase* filter) {
  const std::string_view any = list == AclType::ip ? "ip" : "ipv6";
  if (at.takeIf(any) || (list == AclType::ip && at.takeIf("ipv4"))) return true;
  const auto word = at.peek();
  const auto number = decimal(word);
  if (number && *number <= 255) {
    filter->protocol = static_cast<uint8_t>(*number);
  } else if (const auto named = protocolNumber(word)) {
    filter->protocol = *named;
    warnOfIcmp(at, list);
  } else {
    return failProtocol(at, any, list);
  }
  at.take();
  filter->protocolNamed = true;
  return true;
}

template <class Addr>
bool readSide(Cursor& at, Addr* address, Addr* mask, NamedGroup* group) {
  return at.peek() == groupWord ? readGroupName(at, group) : readAddress(at, address, mask);
}

/// A group of services stands for the protocol and its ports, or behind the destination for ports only.
bool readServiceGroup(Cursor& at, const Acl::IpFilterBase& filter, NamedFields* named, NamedGroup* group) {
  const bool takes = at.peek() == groupWord && filter.protocolNamed && hasPorts(filter.protocol) &&
                     filter.destinationPort.isAny();
  if (!takes) return true;
  named->add(Fields::ports, "ports");
  return readGroupName(at, group);
}

template <class Rule>
bool read(Cursor& at, Rule* rule, GroupNames* groups) {
  constexpr AclType list = listOf<Rule>;
  auto& filter = rule->filter;
  NamedFields named;
  const auto readFirst = [&] {
    return at.peek() == groupWord ? readGroupName(at, &groups->service) : readProtocol(at, list, &filter);
  };
  return readAction(at, rule) && readVlan(at, &filter.vlan) && readFirst() &&
         readSide(at, &filter.source, &filter.sourceMask, &groups->source) &&
         readPorts(at, filter, &named, &filter.sourcePort) &&
         readSide(at, &filter.destination, &filter.destinationMask, &groups->destination) &&
         readPorts(at, filter, &named, &filter.destinationPort) &&
         readServiceGroup(at, filter, &named, &groups->service) &&
         readIcmpMessage(at, list, &named, &filter) && readQualifiers(at, list, named, &filter) &&
         readTail(at, rule);
}

}  // namespace

bool readIpRule(Cursor& at, Acl::IpRule* rule, GroupNames* groups) { return read(at, rule, groups); }
bool readIpRule(Cursor& at, Acl::Ip6Rule* rule, GroupNames* groups) { return read(at, rule, groups); }

bool readStandardRule(Cursor& at, Acl::IpRule* rule, GroupNames* groups) {
  return readAction(at, rule) &&
         readSide(at, &rule->filter.source, &rule->filter.sourceMask, &groups->source) && readTail(at, rule);
}

bool readNumberedStandardRule(Cursor& at, Acl::IpRule* rule, GroupNames* groups) {
  const auto action = at.peek();
  const auto bare = Nimnet::IpAddr::parse(at.peek(1));
  if (!bare || Nimnet::IpAddr::parse(at.peek(2))) return readStandardRule(at, rule, groups);
  if (!readAction(at, rule)) return false;
  rule->text = fmt::format("{} host {}", action, at.textFrom(at.position()));
  at.take();
  rule->filter.source = *bare;
  rule->filter.sourceMask = Nimnet::IpAddr{~uint32_t{0}};
  return readTail(at, rule);
}

bool readAction(Cursor& at, Acl::RuleBase* rule) {
  rule->text = at.textFrom(at.position());
  if (at.takeIf("permit")) {
    rule->action = Acl::Action::permit;
  } else if (at.takeIf("deny")) {
    rule->action = Acl::Action::deny;
  } else {
    return failNear(at, "permit or deny", {"permit", "deny", "remark"});
  }
  return true;
}

bool readVlan(Cursor& at, Acl::VlanMatch* vlan) {
  if (!at.takeIf("vlan")) return true;
  uint32_t id = 0, wildcard = 0;
  if (!at.number("a VLAN id", 0, 0xfff, &id)) return false;
  if (looksHexadecimal(at.peek())) {
    const auto given = hexadecimal(at.peek());
    if (!given || *given > 0xfff) return at.fail("a VLAN wildcard of 0x0 to 0xfff");
    at.take();
    wildcard = *given;
  }
  // A wildcard with all bits set matches every VLAN: the rule is the same as one without the condition.
  if (wildcard != 0xfff)
    *vlan = {true, static_cast<uint16_t>(id & ~wildcard), static_cast<uint16_t>(wildcard)};
  return true;
}

bool readTail(Cursor& at, Acl::RuleBase* rule, std::string_view before,
              std::span<const std::string_view> names) {
  const bool log = at.takeIf("log");
  if (log) {
    rule->log = true;
    before = {};
  }
  if (at.takeIf("mirror")) {
    std::string session;
    if (!at.keyword("session") || !at.name("the name of a mirror session", &session)) return false;
    rule->mirrorSession = session;
    return at.end();
  }
  if (at.atEnd()) return true;
  std::vector<std::string_view> near(names.begin(), names.end());
  near.insert(near.end(), {"mirror", log ? "mirror" : "log"});
  return at.fail(orNearest(fmt::format("{}{}mirror or the end of the line", before, log ? "" : "log, "),
                           at.peek(), near));
}

}  // namespace Config
