#include <agent/config/Cursor.h>
#include <agent/config/Mistake.h>
#include <agent/config/Names.h>
#include <agent/explain/FrameDraft.h>
#include <agent/explain/FrameText.h>
#include <fmt/format.h>

#include <algorithm>

namespace Agent {

namespace {

namespace EtherType = Nimnet::EtherType;
namespace IpProtocol = Nimnet::IpProtocol;
using Config::Cursor;

constexpr size_t largestFrame = 65535;
constexpr uint32_t defaultFragmentOffset = 185;  // behind 1,480 octets, the first fragment of 1,500

template <class T>
bool readAs(Cursor& at, std::string_view expected, std::optional<T> value, T* out) {
  if (!value) return at.fail(std::string(expected));
  *out = *value;
  at.take();
  return true;
}

bool readMac(Cursor& at, Nimnet::EthAddr* out) {
  return readAs(at, "a MAC address", Nimnet::EthAddr::parse(at.peek()), out);
}

bool readNumber(Cursor& at, std::string_view what, uint32_t high, uint8_t* out) {
  uint32_t value = 0;
  if (!at.number(what, 0, high, &value)) return false;
  *out = static_cast<uint8_t>(value);
  return true;
}

std::optional<IpAddress> addressOf(std::string_view text) {
  if (const auto four = Nimnet::IpAddr::parse(text)) return IpAddress(*four);
  if (const auto six = Nimnet::Ip6Addr::parse(text)) return IpAddress(*six);
  return std::nullopt;
}

/// A, A:PORT or [A]:PORT; where the protocol has ports, the port may be missing until the end of the text.
bool readEnd(Cursor& at, const Draft& draft, IpAddress* address, std::optional<uint16_t>* port) {
  std::string_view word = at.peek();
  const bool ports = draft.protocol && Config::hasPorts(*draft.protocol);
  const char* expected =
      ports ? "an address and a port, as in 192.0.2.1:80 or [2001:db8::1]:80" : "an address";
  std::string_view portText;
  if (word.starts_with('[')) {
    const size_t end = word.find(']');
    if (end == word.npos || (end + 1 < word.size() && word[end + 1] != ':')) return at.fail(expected);
    if (end + 1 < word.size()) portText = word.substr(end + 2);
    word = word.substr(1, end - 1);
  } else if (std::count(word.begin(), word.end(), ':') == 1) {
    portText = word.substr(word.find(':') + 1);
    word = word.substr(0, word.find(':'));
  }
  const auto value = addressOf(word);
  if (!value || (!ports && !portText.empty())) return at.fail(expected);
  if (!portText.empty()) {
    const auto number = Config::isDigits(portText) ? Config::decimal(portText) : std::nullopt;
    *port = number && *number <= 0xffff ? static_cast<uint16_t>(*number)
                                        : Config::portNumber(portText, *draft.protocol);
    if (!*port) return at.fail(expected);
  }
  *address = *value;
  at.take();
  return true;
}

bool readEnds(Cursor& at, Draft& draft) {
  if (!readEnd(at, draft, &draft.source, &draft.sourcePort) || !at.keyword(">")) return false;
  const size_t place = at.position();
  if (!readEnd(at, draft, &draft.destination, &draft.destinationPort)) return false;
  if (isSix(draft.source) != isSix(draft.destination))
    return at.failAt(place, "an address of the same kind as the source");
  draft.etherType = isSix(draft.source) ? EtherType::ip6 : EtherType::ip;
  return true;
}

bool readEndsOf(Cursor& at, Draft& draft, bool six) {
  const size_t place = at.position();
  if (!readEnds(at, draft)) return false;
  return isSix(draft.source) == six || at.failAt(place, six ? "an IPv6 address" : "an IPv4 address");
}

template <uint8_t protocol>
bool readPortsKind(Cursor& at, Draft& draft) {
  draft.protocol = protocol;
  return readEnds(at, draft);
}

template <uint8_t protocol, uint8_t echo>
bool readIcmpKind(Cursor& at, Draft& draft) {
  draft.protocol = protocol;
  draft.icmpType = echo;
  if (!readEndsOf(at, draft, protocol == IpProtocol::icmp6)) return false;
  if (const auto* message = Config::icmpMessage(at.peek(), protocol)) {
    draft.icmpType = message->type;
    if (message->code != Config::IcmpMessage::anyCode) draft.icmpCode = static_cast<uint8_t>(message->code);
    at.take();
  } else if (Config::isDigits(at.peek())) {
    if (!readNumber(at, "an ICMP type", 255, &draft.icmpType)) return false;
    if (Config::isDigits(at.peek())) return readNumber(at, "an ICMP code", 255, &draft.icmpCode);
  }
  return true;
}

template <bool six>
bool readIpKind(Cursor& at, Draft& draft) {
  constexpr uint8_t experimental = 253;  // RFC 3692, 2.1: no protocol that a rule would name
  draft.protocol = experimental;
  draft.anyProtocol = true;
  return readEndsOf(at, draft, six);
}

bool readArpKind(Cursor& at, Draft& draft) {
  if (!readEndsOf(at, draft, false)) return false;
  draft.etherType = etherTypeArp;
  return true;
}

bool readEthKind(Cursor& at, Draft& draft) {
  if (!readMac(at, &draft.from) || !at.keyword(">") || !readMac(at, &draft.to)) return false;
  std::optional<uint16_t> type = Config::etherTypeNumber(at.peek());
  if (const auto number = Config::hexadecimal(at.peek()); number && *number <= 0xffff)
    type = static_cast<uint16_t>(*number);
  return readAs(at, "an ethertype by name, or 0x0000 to 0xffff", type, &draft.etherType);
}

bool readVlan(Cursor& at, Draft& draft) {
  uint32_t id = 0;
  if (draft.vlans.size() == 2) return at.fail("no third tag");
  if (!at.number("a vlan", 0, 4095, &id)) return false;
  draft.vlans.push_back(static_cast<uint16_t>(id));
  return true;
}

bool readDscp(Cursor& at, Draft& draft) {
  uint8_t value = 0;
  if (const auto named = Config::dscpNumber(at.peek())) {
    value = *named;
    at.take();
  } else if (!readNumber(at, "a dscp", 63, &value)) {
    return false;
  }
  draft.trafficClass = static_cast<uint8_t>(value << 2);
  return true;
}

bool readProtocol(Cursor& at, Draft& draft) {
  if (!draft.anyProtocol) return at.failAt(at.position() - 1, "no protocol: the first word has said it");
  std::optional<uint8_t> value = Config::protocolNumber(at.peek());
  if (const auto number = Config::decimal(at.peek()); number && *number <= 255)
    value = static_cast<uint8_t>(*number);
  uint8_t protocol = 0;
  if (!readAs(at, "a protocol by name, or 0 to 255", value, &protocol)) return false;
  draft.protocol = protocol;
  return true;
}

bool readFragment(Cursor& at, Draft& draft) {
  uint32_t offset = defaultFragmentOffset;
  if (Config::isDigits(at.peek()) && !at.number("a fragment offset", 1, 8191, &offset)) return false;
  draft.fragmentOffset = offset;
  return true;
}

bool readSize(Cursor& at, Draft& draft) {
  uint32_t size = 0;
  if (!at.number("a number of octets", smallestFrame, largestFrame, &size)) return false;
  draft.size = size;
  return true;
}

template <uint8_t flag>
bool readFlag(Cursor& at, Draft& draft) {
  if (draft.protocol != IpProtocol::tcp) {
    return at.failAt(at.position() - 1, "no TCP flag in a frame that is not TCP");
  }
  draft.tcpFlags |= flag;
  return true;
}

struct Word {
  std::string_view word;
  bool (*read)(Cursor& at, Draft& draft);
};

using Nimnet::TcpHdr;

constexpr Word kinds[] = {
    {"tcp", readPortsKind<IpProtocol::tcp>},
    {"udp", readPortsKind<IpProtocol::udp>},
    {"sctp", readPortsKind<IpProtocol::sctp>},
    {"icmp", readIcmpKind<IpProtocol::icmp, 8>},
    {"icmpv6", readIcmpKind<IpProtocol::icmp6, 128>},
    {"ip", readIpKind<false>},
    {"ipv6", readIpKind<true>},
    {"arp", readArpKind},
    {"eth", readEthKind},
};

constexpr Word modifiers[] = {
    {"vlan", readVlan},
    {"from", [](Cursor& at, Draft& draft) { return readMac(at, &draft.from); }},
    {"to", [](Cursor& at, Draft& draft) { return readMac(at, &draft.to); }},
    {"ttl", [](Cursor& at, Draft& draft) { return readNumber(at, "a ttl", 255, &draft.hops); }},
    {"hop-limit", [](Cursor& at, Draft& draft) { return readNumber(at, "a hop limit", 255, &draft.hops); }},
    {"dscp", readDscp},
    {"traffic-class",
     [](Cursor& at, Draft& draft) { return readNumber(at, "a traffic class", 255, &draft.trafficClass); }},
    {"protocol", readProtocol},
    {"fragment", readFragment},
    {"size", readSize},
    {"syn", readFlag<TcpHdr::syn>},
    {"ack", readFlag<TcpHdr::ack>},
    {"fin", readFlag<TcpHdr::fin>},
    {"rst", readFlag<TcpHdr::rst>},
    {"psh", readFlag<TcpHdr::psh>},
    {"urg", readFlag<TcpHdr::urg>},
};

template <size_t size>
const Word* find(const Word (&words)[size], std::string_view word) {
  const auto* at = std::find_if(words, words + size, [&](const Word& each) { return each.word == word; });
  return at == words + size ? nullptr : at;
}

template <size_t size>
std::string anyOf(const Word (&words)[size]) {
  std::vector<std::string_view> names;
  for (const Word& each : words) names.push_back(each.word);
  return Config::anyOf(names);
}

bool readAll(Cursor& at, Draft& draft) {
  const Word* kind = find(kinds, at.peek());
  if (!kind) return at.fail(anyOf(kinds));
  at.take();
  if (!kind->read(at, draft)) return false;
  while (!at.atEnd()) {
    const Word* modifier = find(modifiers, at.peek());
    if (!modifier) return at.fail(anyOf(modifiers));
    at.take();
    if (!modifier->read(at, draft)) return false;
  }
  const bool ports =
      draft.protocol && Config::hasPorts(*draft.protocol) && !draft.anyProtocol && !draft.fragmentOffset;
  if (ports && !(draft.sourcePort && draft.destinationPort))
    return at.failAt(1, "a port behind both addresses, as in 192.0.2.1:80 or [2001:db8::1]:80");
  return true;
}

}  // namespace

std::optional<Frame> readFrameText(std::string_view text, std::string* wrong) {
  Cursor at;
  Draft draft;
  if (!at.lineIs(text) || !readAll(at, draft)) {
    const auto& problem = *at.problem();
    *wrong = fmt::format("column {}: found {}, expected {}", problem.column, problem.found, problem.expected);
    return std::nullopt;
  }
  Frame frame{draft.octets(), 0};
  frame.wireLength = static_cast<uint32_t>(frame.octets.size());
  return frame;
}

bool isFrameText(std::string_view text) {
  Cursor at;
  return at.lineIs(text) && find(kinds, at.peek()) != nullptr;
}

}  // namespace Agent
