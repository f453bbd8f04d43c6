#include <agent/config/Names.h>
#include <agent/models/Documents.h>
#include <agent/models/IetfNames.h>
#include <agent/models/Leaves.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace Models {

namespace {

using Acl::AclType;

/// The condition on a port as the leaves below source-port or destination-port have it.
struct PortLeaves {
  std::optional<uint16_t> lower{}, upper{}, port{};
  std::optional<std::string> oper{};
};

/// An access control entry that is being read.
struct Ace {
  RuleWords words{};
  DraftRule rule{};
  PortLeaves ports{};  ///< of the side that is being read
  std::string mac{}, macMask{}, otherMac{}, otherMacMask{};
};

/// The whole document.
struct Acls {
  Lines& lines;
  std::map<std::string, AclType, std::less<>> types{};  ///< by the name of the list
};

struct AclOfDocument {
  Acls& all;
  DraftList list{};
  bool known = false;  ///< its type is
};

// What leaves say.

uint16_t word(const Found& found) { return static_cast<uint16_t>(found.number); }
uint8_t octet(const Found& found) { return static_cast<uint8_t>(found.number); }

constexpr Row<PortLeaves> portTable[] = {
    number<PortLeaves>("lower-port", 0, 65535, [](PortLeaves& p, const Found& f) { p.lower = word(f); }),
    number<PortLeaves>("upper-port", 0, 65535, [](PortLeaves& p, const Found& f) { p.upper = word(f); }),
    {"operator", Kind::text, [](PortLeaves& p, const Found& f) { p.oper = f.text; }},
    number<PortLeaves>("port", 0, 65535, [](PortLeaves& p, const Found& f) { p.port = word(f); }),
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
  if (ace.words.list != type)
    found.refuse(fmt::format("no such header in a list of {} rules", typeText(ace.words.list)));
}

template <uint8_t protocol>
void takeTransport(Ace& ace, const Found& found) {
  if (ace.words.list == AclType::mac) return found.refuse("no such header in a list of Ethernet rules");
  ace.words.protocolIs(protocol == Config::protocolIcmp ? icmpOf(ace.words.list) : protocol, found);
}

void takePrefix(AclType type, std::string& words, const Found& found) { words = prefixWords(type, found); }

void takeMac(std::string& mac, const Found& found) {
  if (!isMac(found.text)) return found.refuse("a MAC address, as 02:00:00:00:00:01");
  mac = found.text;
}

void takeEtherType(Ace& ace, const Found& found) {
  const auto type = etherTypeOf(found.node, found.text);
  if (!type) return found.refuse("an EtherType as a number or a name of ietf-ethertypes");
  if (const auto why = whyNoEtherType(*type); !why.empty()) return found.refuse(std::string(why));
  ace.words.etherType = *type;
}

void takeForwarding(Ace& ace, const Found& found) {
  if (found.text == "accept") {
    ace.words.action = Acl::Action::permit;
  } else if (found.text == "drop") {
    ace.words.action = Acl::Action::deny;
  } else if (found.text == "reject") {
    found.refuse("accept or drop: nothing sends ICMP errors here");
  } else {
    found.refuse("accept or drop");
  }
}

void takeLogging(Ace& ace, const Found& found) {
  ace.words.log = found.text == "log-syslog";
  if (!ace.words.log && found.text != "log-none") found.refuse("log-syslog or log-none");
}

/// Names of lists and entries.
bool checkLength(const Found& found) {
  const auto size =
      std::count_if(found.text.begin(), found.text.end(), [](char c) { return (c & 0xc0) != 0x80; });
  const bool right = size > 0 && static_cast<size_t>(size) <= longestIetfName;
  if (!right) found.refuse(fmt::format("a name of 1 to {} characters", longestIetfName));
  return right;
}

constexpr std::string_view onlyHeaders = "a rule can only ask for what docs/models.md has";

/// What RFC 8519 calls an ACE.
constexpr Row<Ace> aceTable[] = {
    {"name", Kind::text,
     [](Ace& a, const Found& f) {
       if (checkLength(f)) a.rule.name = f.text;
     }},
    {"matches/eth", Kind::inside, takeHeader<AclType::mac>},
    {"matches/eth/source-mac-address", Kind::text, [](Ace& a, const Found& f) { takeMac(a.mac, f); }},
    {"matches/eth/source-mac-address-mask", Kind::text,
     [](Ace& a, const Found& f) { takeMac(a.macMask, f); }},
    {"matches/eth/destination-mac-address", Kind::text,
     [](Ace& a, const Found& f) { takeMac(a.otherMac, f); }},
    {"matches/eth/destination-mac-address-mask", Kind::text,
     [](Ace& a, const Found& f) { takeMac(a.otherMacMask, f); }},
    {"matches/eth/ethertype", Kind::any, takeEtherType},
    {"matches/ipv4", Kind::inside, takeHeader<AclType::ip>},
    number<Ace>("matches/ipv4/dscp", 0, 63, [](Ace& a, const Found& f) { a.words.dscp = octet(f); }),
    {"matches/ipv4/ecn", Kind::refused, nullptr, "an IPv4 rule cannot ask for ECN"},
    {"matches/ipv4/length", Kind::refused, nullptr, "a rule cannot ask for the length of a packet"},
    number<Ace>("matches/ipv4/ttl", 0, 255, [](Ace& a, const Found& f) { a.words.hops = octet(f); }),
    number<Ace>("matches/ipv4/protocol", 0, 255, [](Ace& a, const Found& f) { a.words.protocol = octet(f); }),
    {"matches/ipv4/ihl", Kind::refused, nullptr, "a rule cannot ask for the length of a header"},
    {"matches/ipv4/flags", Kind::refused, nullptr, "a rule cannot ask for the flags of a fragment"},
    {"matches/ipv4/offset", Kind::refused, nullptr, "a rule cannot ask for one offset of a fragment"},
    {"matches/ipv4/identification", Kind::refused, nullptr, "a rule cannot ask for the identification"},
    {"matches/ipv4/source-ipv4-network", Kind::text,
     [](Ace& a, const Found& f) { takePrefix(AclType::ip, a.words.source, f); }},
    {"matches/ipv4/destination-ipv4-network", Kind::text,
     [](Ace& a, const Found& f) { takePrefix(AclType::ip, a.words.destination, f); }},
    {"matches/ipv6", Kind::inside, takeHeader<AclType::ipv6>},
    number<Ace>("matches/ipv6/dscp", 0, 63, [](Ace& a, const Found& f) { a.words.dscp = octet(f); }),
    number<Ace>("matches/ipv6/ecn", 0, 3, [](Ace& a, const Found& f) { a.words.ecn = octet(f); }),
    {"matches/ipv6/length", Kind::refused, nullptr, "a rule cannot ask for the length of a packet"},
    number<Ace>("matches/ipv6/ttl", 0, 255, [](Ace& a, const Found& f) { a.words.hops = octet(f); }),
    number<Ace>("matches/ipv6/protocol", 0, 255, [](Ace& a, const Found& f) { a.words.protocol = octet(f); }),
    {"matches/ipv6/source-ipv6-network", Kind::text,
     [](Ace& a, const Found& f) { takePrefix(AclType::ipv6, a.words.source, f); }},
    {"matches/ipv6/destination-ipv6-network", Kind::text,
     [](Ace& a, const Found& f) { takePrefix(AclType::ipv6, a.words.destination, f); }},
    {"matches/ipv6/flow-label", Kind::refused, nullptr, "a rule cannot ask for a flow label"},
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
    number<Ace>("matches/icmp/type", 0, 255, [](Ace& a, const Found& f) { a.words.icmpType = octet(f); }),
    number<Ace>("matches/icmp/code", 0, 255, [](Ace& a, const Found& f) { a.words.icmpCode = octet(f); }),
    {"matches/icmp/rest-of-header", Kind::refused, nullptr, "a rule cannot ask for more than type and code"},
    {"matches/egress-interface", Kind::refused, nullptr,
     "a rule cannot ask for an interface: lists are bound to them"},
    {"matches/ingress-interface", Kind::refused, nullptr,
     "a rule cannot ask for an interface: lists are bound to them"},
    {"actions/forwarding", Kind::identity, takeForwarding},
    {"actions/logging", Kind::identity, takeLogging},
    {"statistics", Kind::ignored},
};

/// Source or destination of an Ethernet rule.
std::string ethernetWords(const Found& found, const std::string& mac, const std::string& mask) {
  if (mac.empty() && !mask.empty()) found.miss("the MAC address of its mask");
  return macWords(mac, mask);
}

void takeAce(AclOfDocument& acl, const Found& found) {
  Ace ace;
  ace.words.list = acl.list.type;
  ace.rule.where = {found.node.at, found.path};
  const size_t before = found.mistakes();
  readLeaves(found, aceTable, ace);
  if (found.mistakes() > before) return;
  if (ace.words.list == AclType::mac) {
    ace.words.source = ethernetWords(found, ace.mac, ace.macMask);
    ace.words.destination = ethernetWords(found, ace.otherMac, ace.otherMacMask);
  }
  ace.rule.words = ace.words.text(found);
  ace.rule.isEverything = ace.words.isEverything();
  ace.rule.isEnd = ace.rule.name == endName && ace.rule.words == "deny " + everything(ace.words.list);
  acl.list.rules.push_back(std::move(ace.rule));
}

void takeType(AclOfDocument& acl, const Found& found) {
  for (const auto& row : typeNames) {
    if (row.name != found.text) continue;
    acl.list.type = row.type;
    acl.known = true;
    return;
  }
  found.refuse("ipv4-acl-type, ipv6-acl-type or eth-acl-type: a list looks at one kind of header");
}

constexpr Row<AclOfDocument> aclTable[] = {
    {"name", Kind::text,
     [](AclOfDocument& a, const Found& f) {
       if (checkLength(f) && checkListName(f.text, f)) a.list.name = f.text;
     }},
    {"type", Kind::identity, takeType},
    {"aces/ace", Kind::entries,
     [](AclOfDocument& a, const Found& f) {
       if (a.known) takeAce(a, f);
     },
     "name"},
};

void takeAcl(Acls& all, const Found& found) {
  AclOfDocument acl{all};
  acl.list.where = {found.node.at, found.path};
  if (!found.node.find("type")) found.miss("its type: ipv4-acl-type, ipv6-acl-type or eth-acl-type");
  readLeaves(found, aclTable, acl);
  if (!acl.known || acl.list.name.empty()) return;
  all.types.emplace(acl.list.name, acl.list.type);
  write(acl.list, all.lines, found.report);
}

// Where lists are bound.

struct Attachment {
  Acls& all;
  std::string interface {};
};

struct AttachedSet {
  std::string name{};
};
constexpr Row<AttachedSet> setTable[] = {
    {"name", Kind::text, [](AttachedSet& s, const Found& f) { s.name = f.text; }},
    {"ace-statistics", Kind::ignored},
};

template <Acl::AclDirection direction>
void takeSet(Attachment& attachment, const Found& found) {
  AttachedSet set;
  readLeaves(found, setTable, set);
  const auto known = attachment.all.types.find(set.name);
  if (known == attachment.all.types.end()) return found.refuse("the name of a list that the document has");
  if (!attachment.interface.empty())
    attachment.all.lines.bind({known->second, direction, attachment.interface}, set.name, found);
}

constexpr Row<Attachment> interfaceTable[] = {
    {"interface-id", Kind::text,
     [](Attachment& a, const Found& f) {
       if (checkName(f.text, f)) a.interface = f.text;
     }},
    {"ingress/acl-sets/acl-set", Kind::entries, takeSet<Acl::AclDirection::in>, "name"},
    {"egress/acl-sets/acl-set", Kind::entries, takeSet<Acl::AclDirection::out>, "name"},
};

void takeInterface(Acls& all, const Found& found) {
  Attachment attachment{all};
  readLeaves(found, interfaceTable, attachment);
}

constexpr Row<Acls> aclsTable[] = {
    {"acl", Kind::entries, takeAcl, "name"},
    {"attachment-points/interface", Kind::entries, takeInterface, "interface-id"},
};

}  // namespace

void readIetf(const Found& acls, Lines& lines) {
  Acls all{lines};
  readLeaves(acls, aclsTable, all);
}

}  // namespace Models
