#include <agent/config/Mistake.h>
#include <agent/config/Names.h>
#include <agent/config/Nearest.h>
#include <agent/config/Qualifiers.h>
#include <agent/config/Rules.h>
#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <optional>

namespace Config {

namespace {

using Acl::AclType;
using Acl::Compare;
using Acl::IpFilterBase;
using namespace Fields;

constexpr unsigned ipLists = 1, ip6Lists = 2, allLists = ipLists | ip6Lists;

/// A word that may stand behind the addresses of a rule.
struct Qualifier {
  std::string_view word;
  unsigned lists;     ///< the kinds of list that it is for
  bool tcpOnly;       ///< it is for rules of TCP only
  uint32_t field;     ///< the field that it names
  uint32_t excludes;  ///< fields that may not be named in the same rule
  bool (*read)(Cursor& at, uint8_t value, IpFilterBase* filter);  ///< reads what stands behind the word
  uint8_t value = 0;                                              ///< given to `read`
};

std::optional<Compare> compareOf(std::string_view word) {
  constexpr std::pair<std::string_view, Compare> table[] = {{"eq", Compare::eq},
                                                            {"neq", Compare::neq},
                                                            {"lt", Compare::lt},
                                                            {"gt", Compare::gt},
                                                            {"range", Compare::range}};
  for (const auto& [name, compare] : table) {
    if (name == word) return compare;
  }
  return {};
}

bool readEstablished(Cursor&, uint8_t, IpFilterBase* filter) {
  filter->established = true;
  return true;
}

bool readFlag(Cursor&, uint8_t bit, IpFilterBase* filter) {
  filter->tcpFlags |= bit;
  return true;
}

bool readFragments(Cursor&, uint8_t, IpFilterBase* filter) {
  filter->fragments = true;
  return true;
}

/// Reads a value up to `max`, or takes the one that was `named`, and an optional mask. In the filter they
/// stand `shift` bits further left.
template <class Expected>
bool readMasked(Cursor& at, unsigned max, std::optional<uint8_t> named, const Expected& expected,
                unsigned shift, IpFilterBase* filter) {
  std::optional<uint32_t> value = named;
  if (!value) value = looksHexadecimal(at.peek()) ? hexadecimal(at.peek()) : decimal(at.peek());
  if (!value || *value > max) return at.fail(expected());
  at.take();
  uint32_t mask = max;
  if (looksHexadecimal(at.peek())) {
    const auto given = hexadecimal(at.peek());
    if (!given || *given > max) return at.fail(fmt::format("a mask of 0x0 to 0x{:x}", max));
    at.take();
    mask = *given;
  }
  filter->trafficClassMask = static_cast<uint8_t>(mask << shift);
  filter->trafficClass = static_cast<uint8_t>(*value << shift) & filter->trafficClassMask;
  return true;
}

bool readDscp(Cursor& at, uint8_t, IpFilterBase* filter) {
  const auto named = dscpNumber(at.peek());
  const auto expected = [&at] {
    return orNearest("a DSCP name or 0 to 63", at.peek(), namesOf(dscpNames()));
  };
  return readMasked(at, 63, named, expected, 2, filter);
}

bool readTrafficClass(Cursor& at, uint8_t, IpFilterBase* filter) {
  return readMasked(
      at, 255, {}, [] { return "a traffic class 0 to 255"; }, 0, filter);
}

bool readHops(Cursor& at, uint8_t, IpFilterBase* filter) {
  const auto compare = compareOf(at.peek());
  if (!compare || *compare == Compare::range) return at.fail("eq, neq, lt or gt");
  at.take();
  uint32_t value = 0;
  if (!at.number("a number", 0, 255, &value)) return false;
  filter->hops = {*compare, static_cast<uint8_t>(value)};
  return true;
}

constexpr Qualifier qualifiers[] = {
    {"established", allLists, true, established, flags | fragments, readEstablished},
    {"syn", allLists, true, syn, established | fragments, readFlag, 0x02},
    {"ack", allLists, true, ack, established | fragments, readFlag, 0x10},
    {"fin", allLists, true, fin, established | fragments, readFlag, 0x01},
    {"rst", allLists, true, rst, established | fragments, readFlag, 0x04},
    {"psh", allLists, true, psh, established | fragments, readFlag, 0x08},
    {"urg", allLists, true, urg, established | fragments, readFlag, 0x20},
    {"dscp", allLists, false, trafficClass, 0, readDscp},
    {"traffic-class", ip6Lists, false, trafficClass, 0, readTrafficClass},
    {"ttl", ipLists, false, hops, 0, readHops},
    {"hop-limit", ip6Lists, false, hops, 0, readHops},
    {"fragments", allLists, false, fragments, l4, readFragments},
};

unsigned listBit(AclType list) { return list == AclType::ip ? ipLists : ip6Lists; }
uint8_t icmpOf(AclType list) { return list == AclType::ip ? protocolIcmp : protocolIcmpV6; }

bool isFor(const Qualifier& row, AclType list, const IpFilterBase& filter) {
  return (row.lists & listBit(list)) &&
         (!row.tcpOnly || (filter.protocolNamed && filter.protocol == protocolTcp));
}

/// The words that can stand next in the rule. Some can only stand `first`, right behind the destination. An
/// unknown `word` is told the nearest of them.
std::string choices(AclType list, const NamedFields& named, const IpFilterBase& filter, bool first,
                    std::string_view word) {
  std::vector<std::string_view> words, names;
  if (first && filter.protocolNamed && hasPorts(filter.protocol) && filter.destinationPort.isAny()) {
    words.insert(words.end(), {"eq", "neq", "lt", "gt", "range"});
  }
  if (first && filter.protocolNamed && filter.protocol == icmpOf(list) && !filter.icmpTypeNamed) {
    words.push_back("an ICMP message name or type");
    names = namesOf(icmpMessages(filter.protocol));
  }
  for (const auto& row : qualifiers) {
    if (isFor(row, list, filter) && named.wordOf(row.field | row.excludes).empty()) words.push_back(row.word);
  }
  words.insert(words.end(), {"log", "mirror", "the end of the line"});
  names.insert(names.end(), words.begin(), words.end());
  return orNearest(anyOf(words), word, names);
}

/// Why a known word cannot stand here; empty for a word that is not known. `row` is null when it is no
/// qualifier.
std::string reasonAgainst(std::string_view word, const Qualifier* row, AclType list, const NamedFields& named,
                          const IpFilterBase& filter) {
  if (!row) {
    if (icmpMessage(word, icmpOf(list))) {
      return filter.protocolNamed && filter.protocol == icmpOf(list)
                 ? "not right behind the destination"
                 : fmt::format("in a rule that is not for {}", list == AclType::ip ? "icmp" : "icmpv6");
    }
    return compareOf(word) && filter.protocolNamed && !hasPorts(filter.protocol)
               ? "in a rule that is not for tcp, udp or sctp"
               : "";
  }
  if (!(row->lists & listBit(list))) return list == AclType::ip ? "in an IPv4 list" : "in an IPv6 list";
  if (!isFor(*row, list, filter)) return "in a rule that is not for tcp";
  if (const auto same = named.wordOf(row->field); same == row->word) return "a second time";
  const auto other = named.wordOf(row->field | row->excludes);
  if (other.empty()) return {};
  if (row->field == fragments) return fmt::format("beside {}, which later fragments do not have", other);
  return fmt::format("beside {}{}", other, other == "fragments" ? ", which do not have it" : "");
}

bool isPortWord(std::string_view word, uint8_t protocol) {
  return isDigits(word) || portNumber(word, protocol);
}

bool failPort(Cursor& at, uint8_t protocol) {
  std::vector<std::string_view> names;
  for (const auto& row : portNames()) {
    if (row.transports & transportBit(protocol)) names.push_back(row.name);
  }
  return at.fail(orNearest("a port 0 to 65535 or a port name of this protocol", at.peek(), names));
}

bool readPort(Cursor& at, uint8_t protocol, uint16_t* port) {
  auto value = decimal(at.peek());
  if (!value || *value > 65535) value = portNumber(at.peek(), protocol);
  if (!value) return failPort(at, protocol);
  at.take();
  *port = static_cast<uint16_t>(*value);
  return true;
}

}  // namespace

void NamedFields::add(uint32_t fields, std::string_view word) {
  for (int i = 0; i < count; ++i) {
    if (fields & (1u << i)) words_[i] = word;
  }
}

std::string_view NamedFields::wordOf(uint32_t fields) const {
  for (int i = 0; i < count; ++i) {
    if ((fields & (1u << i)) && !words_[i].empty()) return words_[i];
  }
  return {};
}

bool readQualifiers(Cursor& at, AclType list, NamedFields named, IpFilterBase* filter) {
  for (bool first = true; !at.atEnd() && !isTailWord(at.peek()); first = false) {
    const auto* row = std::find_if(std::begin(qualifiers), std::end(qualifiers),
                                   [&](const Qualifier& q) { return q.word == at.peek(); });
    if (row == std::end(qualifiers)) row = nullptr;
    if (!row || !isFor(*row, list, *filter) || !named.wordOf(row->field | row->excludes).empty()) {
      const auto reason = reasonAgainst(at.peek(), row, list, named, *filter);
      return at.fail(choices(list, named, *filter, first, reason.empty() ? at.peek() : ""), reason);
    }
    at.take();
    if (!row->read(at, row->value, filter)) return false;
    named.add(row->field, row->word);
  }
  return true;
}

bool readPorts(Cursor& at, const IpFilterBase& filter, NamedFields* named, Acl::PortMatch* match) {
  const auto compare = compareOf(at.peek());
  if (!compare) return true;
  if (!filter.protocolNamed || !hasPorts(filter.protocol)) {
    return at.fail("a rule for tcp, udp or sctp in front of ports");
  }
  at.take();
  Acl::PortMatch result{*compare, 0, {}};
  const auto more = [&] {
    return readPort(at, filter.protocol, &result.ports[result.count]) && ++result.count;
  };
  if (!more()) return false;
  if (*compare == Compare::range) {
    if (!more()) return false;
    if (result.ports[0] > result.ports[1]) {
      return at.failAt(at.position() - 1, fmt::format("a port that is not below {}", result.ports[0]));
    }
  }
  if (*compare == Compare::eq || *compare == Compare::neq) {
    while (isPortWord(at.peek(), filter.protocol)) {
      if (result.count == Acl::PortMatch::maxPorts) return at.fail("at most ten ports");
      if (!more()) return false;
    }
    // Sorted and without repetition, so that equal sets of ports are equal values.
    const auto end = result.ports.begin() + result.count;
    std::sort(result.ports.begin(), end);
    const auto kept = std::unique(result.ports.begin(), end);
    std::fill(kept, end, uint16_t{0});
    result.count = static_cast<uint8_t>(kept - result.ports.begin());
  }
  *match = result;
  named->add(ports, "ports");
  return true;
}

bool readIcmpMessage(Cursor& at, AclType list, NamedFields* named, IpFilterBase* filter) {
  if (!filter->protocolNamed || filter->protocol != icmpOf(list)) return true;
  const auto* message = icmpMessage(at.peek(), filter->protocol);
  if (message) {
    at.take();
    filter->icmpType = message->type;
    filter->icmpCodeNamed = message->code != IcmpMessage::anyCode;
    filter->icmpCode = filter->icmpCodeNamed ? static_cast<uint8_t>(message->code) : uint8_t{0};
  } else if (isDigits(at.peek())) {
    uint32_t type = 0, code = 0;
    if (!at.number("an ICMP type", 0, 255, &type)) return false;
    filter->icmpCodeNamed = isDigits(at.peek());
    if (filter->icmpCodeNamed && !at.number("an ICMP code", 0, 255, &code)) return false;
    filter->icmpType = static_cast<uint8_t>(type);
    filter->icmpCode = static_cast<uint8_t>(code);
  } else {
    return true;
  }
  filter->icmpTypeNamed = true;
  named->add(icmp, "an ICMP message");
  return true;
}

}  // namespace Config
