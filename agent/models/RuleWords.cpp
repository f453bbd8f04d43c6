#include <Nimnet/Addr.h>
#include <Nimnet/IpHdr.h>
#include <agent/config/Cursor.h>
#include <agent/config/Names.h>
#include <agent/models/RuleWords.h>
#include <fmt/format.h>

#include <algorithm>

namespace Models {

namespace {

using Acl::AclType;

std::string orAny(const std::string& address) { return address.empty() ? "any" : address; }

/// A mask as a wildcard, whose set bits are ignored.
Nimnet::EthAddr inverted(const Nimnet::EthAddr& mask) {
  return Nimnet::EthAddr::fromValue(~mask.value() & 0xffffffffffff);
}

void add(std::string& text, std::string_view word) {
  if (!word.empty()) text += fmt::format(" {}", word);
}

/// `host M` or `M WILDCARD`; nothing is asked for: `any`.
std::string macWords(const MacLeaves& mac) {
  if (mac.address.empty()) return "any";
  const auto wildcard = mac.mask.empty() ? Nimnet::EthAddr() : inverted(*Nimnet::EthAddr::parse(mac.mask));
  if (wildcard == Nimnet::EthAddr()) return fmt::format("host {}", mac.address);
  return fmt::format("{} {}", mac.address, wildcard.str());
}

/// What would be a better type of frames that a rule asks for; empty: it is right.
std::string_view whyNoEtherType(uint16_t type) {
  if (type < 0x600) return "an EtherType from 1536: below that the field is a length";
  if (type == 0x8100 || type == 0x88a8 || type == 0x9100)
    return "the EtherType of what is tagged: rules look at the type behind the tags";
  return {};
}

}  // namespace

std::string_view typeText(AclType list) {
  return list == AclType::ip ? "IPv4" : list == AclType::ipv6 ? "IPv6" : "Ethernet";
}

std::string everything(AclType list) {
  return list == AclType::ip ? "ip any any" : list == AclType::ipv6 ? "ipv6 any any" : "any any";
}

uint8_t icmpOf(AclType list) { return list == AclType::ipv6 ? Config::protocolIcmpV6 : Config::protocolIcmp; }

bool isExtensionHeader(AclType list, uint8_t protocol) {
  namespace IpProtocol = Nimnet::IpProtocol;
  constexpr uint8_t headers[] = {IpProtocol::hopByHop, IpProtocol::routing, IpProtocol::fragment,
                                 IpProtocol::ah, IpProtocol::destinationOptions};
  return list == AclType::ipv6 &&
         std::find(std::begin(headers), std::end(headers), protocol) != std::end(headers);
}

bool RuleWords::isEverything() const {
  return !vlan && !protocol && source.empty() && destination.empty() && !sourcePorts.given() &&
         !destinationPorts.given() && !icmpType && !icmpCode && !dscp && !ecn && !hops && tcp.empty() &&
         !fragments && !etherType && sourceMac.address.empty() && destinationMac.address.empty();
}

void RuleWords::protocolIs(uint8_t number, const Found& found) {
  if (protocol && *protocol != number)
    return found.refuse(fmt::format("it without protocol {}: no packet has both", *protocol));
  protocol = number;
}

void RuleWords::headerIs(AclType header, const Found& found) const {
  if (list != header) found.refuse(fmt::format("no such header in a list of {} rules", typeText(list)));
}

void RuleWords::actionIs(const ActionNames& names, const Found& found) {
  if (found.text == names.permit) {
    action = Acl::Action::permit;
  } else if (found.text == names.deny) {
    action = Acl::Action::deny;
  } else {
    const bool reject = !names.reject.empty() && found.text == names.reject;
    found.refuse(
        fmt::format("{} or {}: {}", names.permit, names.deny,
                    reject ? "nothing sends ICMP errors here" : "a rule does nothing else with a packet"));
  }
}

void RuleWords::logIs(const ActionNames& names, const Found& found) {
  log = found.text == names.log;
  if (!log && found.text != names.noLog) found.refuse(fmt::format("{} or {}", names.log, names.noLog));
}

void RuleWords::etherTypeIs(uint16_t type, const Found& found) {
  if (const auto why = whyNoEtherType(type); !why.empty()) return found.refuse(std::string(why));
  etherType = type;
}

std::string RuleWords::protocolWord() const {
  if (!protocol) return list == AclType::ip ? "ip" : "ipv6";
  for (const auto& row : Config::protocolNames()) {
    if (row.number == *protocol) return std::string(row.name);
  }
  return std::to_string(*protocol);
}

void RuleWords::checkPorts(const PortWords& ports, const Found& rule) const {
  if (!ports.given() || (protocol && Config::hasPorts(*protocol))) return;
  rule.report.mistake(
      ports.at, fmt::format("ports at {}", ports.path),
      "a protocol that has ports (6, 17 or 132) beside them: a rule for any protocol has none");
}

std::string RuleWords::trafficClass(const Found& rule) const {
  if (!ecn) return dscp ? fmt::format("dscp {}", *dscp) : "";
  if (list != AclType::ipv6) {
    rule.refuse("it without ECN: an IPv4 rule cannot ask for it");
    return "";
  }
  return dscp ? fmt::format("traffic-class {}", *dscp * 4 + *ecn) : fmt::format("traffic-class {} 0x3", *ecn);
}

std::string RuleWords::ethernetText() const {
  const std::string addresses = fmt::format(" {} {}", macWords(sourceMac), macWords(destinationMac));
  return etherType ? fmt::format("{} 0x{:04x}", addresses, *etherType) : addresses;
}

std::string RuleWords::text(const Found& rule) const {
  for (const auto* mac : {&sourceMac, &destinationMac}) {
    if (mac->address.empty() && !mac->mask.empty()) rule.miss("the MAC address of its mask");
  }
  if (!action) {
    rule.miss("what becomes of packets");
    return {};
  }
  std::string text(*action == Acl::Action::permit ? "permit" : "deny");
  if (vlan) text += fmt::format(" vlan {}", *vlan);
  if (list == AclType::mac) {
    text += ethernetText();
  } else {
    checkPorts(sourcePorts, rule);
    checkPorts(destinationPorts, rule);
    if (icmpCode && !icmpType) rule.miss("the ICMP type of its code");
    text += fmt::format(" {} {}", protocolWord(), orAny(source));
    add(text, sourcePorts.words);
    add(text, orAny(destination));
    add(text, destinationPorts.words);
    if (icmpType) text += fmt::format(" {}", *icmpType);
    if (icmpType && icmpCode) text += fmt::format(" {}", *icmpCode);
    add(text, tcp);
    add(text, trafficClass(rule));
    if (hops) text += fmt::format(" {} eq {}", list == AclType::ip ? "ttl" : "hop-limit", *hops);
    if (fragments) text += " fragments";
  }
  if (log) text += " log";
  return text;
}

std::string prefixWords(AclType list, const Found& found) {
  const bool ip = list == AclType::ip;
  const auto slash = std::min(found.text.find('/'), found.text.size());
  const auto address = found.text.substr(0, slash);
  const bool isAddress =
      ip ? Nimnet::IpAddr::parse(address).has_value() : Nimnet::Ip6Addr::parse(address).has_value();
  const auto length = Config::decimal(found.text.substr(std::min(slash + 1, found.text.size())));
  if (isAddress && length && *length <= (ip ? 32u : 128u)) return *length == 0 ? "" : std::string(found.text);
  found.refuse(ip ? "an IPv4 prefix, as 192.0.2.0/24" : "an IPv6 prefix, as 2001:db8::/32");
  return {};
}

std::string macText(const Found& found) {
  // Of the forms that are parsed, models have only this one.
  if (found.text.size() == 17 && found.text[2] == ':' && Nimnet::EthAddr::parse(found.text))
    return std::string(found.text);
  found.refuse("a MAC address, as 02:00:00:00:00:01");
  return {};
}

}  // namespace Models
