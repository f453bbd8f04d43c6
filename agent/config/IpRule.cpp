#include <agent/config/Addresses.h>
#include <agent/config/Names.h>
#include <agent/config/Qualifiers.h>
#include <agent/config/Rules.h>
#include <fmt/format.h>

#include <type_traits>

namespace Config {

namespace {

using Acl::AclType;

template <class Rule>
constexpr AclType listOf = std::is_same_v<Rule, Acl::IpRule> ? AclType::ip : AclType::ipv6;

/// `ip` in an IPv4 list and `ipv6` in an IPv6 list mean any protocol. The other word of the two is a mistake:
/// some readers would take it for a protocol number (41, IPv6 in IPv4) and some for "any".
bool readProtocol(Cursor& at, AclType list, Acl::IpFilterBase* filter) {
  const std::string_view any = list == AclType::ip ? "ip" : "ipv6";
  if (at.takeIf(any)) return true;
  const auto word = at.peek();
  const auto number = decimal(word);
  if (number && *number <= 255) {
    filter->protocol = static_cast<uint8_t>(*number);
  } else if (const auto named = protocolNumber(word)) {
    filter->protocol = *named;
  } else {
    return at.fail(fmt::format("{}, tcp, udp, {}, sctp, another protocol name or 0 to 255", any,
                               list == AclType::ip ? "icmp" : "icmpv6"));
  }
  at.take();
  filter->protocolNamed = true;
  return true;
}

template <class Rule>
bool read(Cursor& at, Rule* rule) {
  constexpr AclType list = listOf<Rule>;
  auto& filter = rule->filter;
  NamedFields named;
  return readAction(at, rule) && readVlan(at, &filter.vlan) && readProtocol(at, list, &filter) &&
         readAddress(at, &filter.source, &filter.sourceMask) &&
         readPorts(at, filter, &named, &filter.sourcePort) &&
         readAddress(at, &filter.destination, &filter.destinationMask) &&
         readPorts(at, filter, &named, &filter.destinationPort) &&
         readIcmpMessage(at, list, &named, &filter) && readQualifiers(at, list, named, &filter) &&
         readTail(at, rule);
}

}  // namespace

bool readIpRule(Cursor& at, Acl::IpRule* rule) { return read(at, rule); }
bool readIpRule(Cursor& at, Acl::Ip6Rule* rule) { return read(at, rule); }

bool readStandardRule(Cursor& at, Acl::IpRule* rule) {
  return readAction(at, rule) && readAddress(at, &rule->filter.source, &rule->filter.sourceMask) &&
         readTail(at, rule);
}

bool readAction(Cursor& at, Acl::RuleBase* rule) {
  rule->text = at.textFrom(at.position());
  if (at.takeIf("permit")) {
    rule->action = Acl::Action::permit;
  } else if (at.takeIf("deny")) {
    rule->action = Acl::Action::deny;
  } else {
    return at.fail("permit or deny");
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

bool readTail(Cursor& at, Acl::RuleBase* rule, std::string_view before) {
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
  return at.atEnd() || at.fail(fmt::format("{}{}mirror or the end of the line", before, log ? "" : "log, "));
}

}  // namespace Config
