#include <agent/config/Names.h>
#include <agent/models/IetfEntry.h>
#include <agent/models/IetfNames.h>
#include <fmt/format.h>

namespace Models {

namespace {

using Acl::AclType;

/// The condition on a port as the leaves below source-port or destination-port have it.
struct PortLeaves {
  std::optional<uint16_t> lower{}, upper{}, port{};
  std::optional<std::string> oper{};
};

/// An access control entry that is being read.
using Ace = EntryDraft;

constexpr Row<PortLeaves> portTable[] = {
    number<PortLeaves>("lower-port", 0, 65535, [](PortLeaves& p, const Found& f) { p.lower = f.word(); }),
    number<PortLeaves>("upper-port", 0, 65535, [](PortLeaves& p, const Found& f) { p.upper = f.word(); }),
    {"operator", Kind::text, [](PortLeaves& p, const Found& f) { p.oper = f.text; }},
    number<PortLeaves>("port", 0, 65535, [](PortLeaves& p, const Found& f) { p.port = f.word(); }),
};

/// The words for an operator and a port. "lte" and "gte" have the port itself, `lt` and `gt` do not.
std::string portWords(const std::string& oper, uint16_t port, const Found& found) {
  if (oper == "eq") return fmt::format("eq {}", port);
  if (oper == "neq") return fmt::format("neq {}", port);
  if (oper == "lte") return port == 65535 ? "range 0 65535" : fmt::format("lt {}", port + 1);
  if (oper == "gte") return port == 0 ? "range 0 65535" : fmt::format("gt {}", port - 1);
  found.report.mistake(found.node.at, fmt::format("{} at {}/operator", printableQuote(oper), found.path),
                       "eq, neq, lte or gte");
  return {};
}

PortWords portsOf(const Found& found) {
  PortLeaves leaves;
  const size_t before = found.mistakes();
  readLeaves(found, portTable, leaves);
  const bool range = leaves.lower || leaves.upper, single = leaves.port || leaves.oper;
  PortWords ports{{}, found.node.at, found.path};
  if ((!range && !single) || found.mistakes() > before) return ports;
  if (range == single || (range && (!leaves.lower || !leaves.upper)) || (single && !leaves.port)) {
    found.refuse("either lower-port and upper-port, or port with an operator");
  } else if (single) {
    ports.words = portWords(leaves.oper.value_or("eq"), *leaves.port, found);
  } else if (*leaves.lower > *leaves.upper) {
    found.refuse("a lower-port that is not above the upper-port");
  } else {
    ports.words = fmt::format("range {} {}", *leaves.lower, *leaves.upper);
  }
  return ports;
}

void takeSourcePort(Ace& ace, const Found& found) { ace.words.sourcePorts = portsOf(found); }
void takeDestinationPort(Ace& ace, const Found& found) { ace.words.destinationPorts = portsOf(found); }

template <AclType type>
void takeHeader(Ace& ace, const Found& found) {
  ace.words.headerIs(type, found);
}

template <uint8_t protocol>
void takeTransport(Ace& ace, const Found& found) {
  if (ace.words.list == AclType::mac) return found.refuse(onlyEthernet);
  ace.words.protocolIs(protocol == Config::protocolIcmp ? icmpOf(ace.words.list) : protocol, found);
}

void takePrefix(AclType type, std::string& words, const Found& found) { words = prefixWords(type, found); }

void takeEtherType(Ace& ace, const Found& found) {
  const auto type = etherTypeOf(found.node, found.text);
  if (!type) return found.refuse("an EtherType as a number or a name of ietf-ethertypes");
  ace.words.etherTypeIs(*type, found);
}

constexpr ActionNames actionNames = {
    .permit = "accept", .deny = "drop", .reject = "reject", .log = "log-syslog", .noLog = "log-none"};

constexpr std::string_view onlyHeaders = "a rule can only ask for what docs/models.md has";

/// What RFC 8519 calls an ACE.
constexpr Row<Ace> aceTable[] = {
    {"name", Kind::text,
     [](Ace& a, const Found& f) {
       if (checkIetfLength(f)) a.rule.name = f.text;
     }},
    {"matches/eth", Kind::inside, takeHeader<AclType::mac>},
    {"matches/eth/source-mac-address", Kind::text,
     [](Ace& a, const Found& f) { a.words.sourceMac.address = macText(f); }},
    {"matches/eth/source-mac-address-mask", Kind::text,
     [](Ace& a, const Found& f) { a.words.sourceMac.mask = macText(f); }},
    {"matches/eth/destination-mac-address", Kind::text,
     [](Ace& a, const Found& f) { a.words.destinationMac.address = macText(f); }},
    {"matches/eth/destination-mac-address-mask", Kind::text,
     [](Ace& a, const Found& f) { a.words.destinationMac.mask = macText(f); }},
    {"matches/eth/ethertype", Kind::any, takeEtherType},
    {"matches/ipv4", Kind::inside, takeHeader<AclType::ip>},
    number<Ace>("matches/ipv4/dscp", 0, 63, [](Ace& a, const Found& f) { a.words.dscp = f.octet(); }),
    {"matches/ipv4/ecn", Kind::refused, nullptr, "an IPv4 rule cannot ask for ECN"},
    {"matches/ipv4/length", Kind::refused, nullptr, noPacketLength},
    number<Ace>("matches/ipv4/ttl", 0, 255, [](Ace& a, const Found& f) { a.words.hops = f.octet(); }),
    number<Ace>("matches/ipv4/protocol", 0, 255,
                [](Ace& a, const Found& f) { a.words.protocol = f.octet(); }),
    {"matches/ipv4/ihl", Kind::refused, nullptr, "a rule cannot ask for the length of a header"},
    {"matches/ipv4/flags", Kind::refused, nullptr, "a rule cannot ask for the flags of a fragment"},
    {"matches/ipv4/offset", Kind::refused, nullptr, "a rule cannot ask for one offset of a fragment"},
    {"matches/ipv4/identification", Kind::refused, nullptr, "a rule cannot ask for the identification"},
    {"matches/ipv4/source-ipv4-network", Kind::text,
     [](Ace& a, const Found& f) { takePrefix(AclType::ip, a.words.source, f); }},
    {"matches/ipv4/destination-ipv4-network", Kind::text,
     [](Ace& a, const Found& f) { takePrefix(AclType::ip, a.words.destination, f); }},
    {"matches/ipv6", Kind::inside, takeHeader<AclType::ipv6>},
    number<Ace>("matches/ipv6/dscp", 0, 63, [](Ace& a, const Found& f) { a.words.dscp = f.octet(); }),
    number<Ace>("matches/ipv6/ecn", 0, 3, [](Ace& a, const Found& f) { a.words.ecn = f.octet(); }),
    {"matches/ipv6/length", Kind::refused, nullptr, noPacketLength},
    number<Ace>("matches/ipv6/ttl", 0, 255, [](Ace& a, const Found& f) { a.words.hops = f.octet(); }),
    number<Ace>("matches/ipv6/protocol", 0, 255,
                [](Ace& a, const Found& f) { a.words.protocol = f.octet(); }),
    {"matches/ipv6/source-ipv6-network", Kind::text,
     [](Ace& a, const Found& f) { takePrefix(AclType::ipv6, a.words.source, f); }},
    {"matches/ipv6/destination-ipv6-network", Kind::text,
     [](Ace& a, const Found& f) { takePrefix(AclType::ipv6, a.words.destination, f); }},
    {"matches/ipv6/flow-label", Kind::refused, nullptr, noFlowLabel},
    {"matches/tcp", Kind::inside, takeTransport<Config::protocolTcp>},
    {"matches/tcp/source-port", Kind::whole, takeSourcePort},
    {"matches/tcp/destination-port", Kind::whole, takeDestinationPort},
    {"matches/tcp/sequence-number", Kind::refused, nullptr, onlyHeaders},
    {"matches/tcp/acknowledgement-number", Kind::refused, nullptr, onlyHeaders},
    {"matches/tcp/data-offset", Kind::refused, nullptr, onlyHeaders},
    {"matches/tcp/reserved", Kind::refused, nullptr, onlyHeaders},
    {"matches/tcp/flags", Kind::refused, nullptr,
     "it asks for these flags and no others, and a rule cannot ask that flags are clear"},
    {"matches/tcp/window-size", Kind::refused, nullptr, onlyHeaders},
    {"matches/tcp/urgent-pointer", Kind::refused, nullptr, onlyHeaders},
    {"matches/tcp/options", Kind::refused, nullptr, onlyHeaders},
    {"matches/udp", Kind::inside, takeTransport<Config::protocolUdp>},
    {"matches/udp/length", Kind::refused, nullptr, "a rule cannot ask for the length of a datagram"},
    {"matches/udp/source-port", Kind::whole, takeSourcePort},
    {"matches/udp/destination-port", Kind::whole, takeDestinationPort},
    {"matches/icmp", Kind::inside, takeTransport<Config::protocolIcmp>},
    number<Ace>("matches/icmp/type", 0, 255, [](Ace& a, const Found& f) { a.words.icmpType = f.octet(); }),
    number<Ace>("matches/icmp/code", 0, 255, [](Ace& a, const Found& f) { a.words.icmpCode = f.octet(); }),
    {"matches/icmp/rest-of-header", Kind::refused, nullptr, "a rule cannot ask for more than type and code"},
    {"matches/egress-interface", Kind::refused, nullptr, noInterface},
    {"matches/ingress-interface", Kind::refused, nullptr, noInterface},
    {"actions/forwarding", Kind::identity, [](Ace& a, const Found& f) { a.words.actionIs(actionNames, f); }},
    {"actions/logging", Kind::identity, [](Ace& a, const Found& f) { a.words.logIs(actionNames, f); }},
    {"statistics", Kind::ignored},
};

}  // namespace

void readAce(DraftList& list, const Found& found) {
  Ace ace;
  if (!readEntry(found, list.type, aceTable, ace)) return;
  ace.wordsAreRead(found);
  ace.rule.isEnd = ace.rule.name == endName && ace.dropsAll();
  list.rules.push_back(std::move(ace.rule));
}

}  // namespace Models
