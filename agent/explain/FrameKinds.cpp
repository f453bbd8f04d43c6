// Reads the first word of the text of a frame, and the addresses behind it.
#include <agent/config/Names.h>
#include <agent/config/Nearest.h>
#include <agent/explain/FrameWords.h>

#include <algorithm>

namespace Agent {

namespace {

namespace EtherType = Nimnet::EtherType;
namespace IpProtocol = Nimnet::IpProtocol;
using Config::Cursor;

std::optional<IpAddress> addressOf(std::string_view text) {
  if (const auto four = Nimnet::IpAddr::parse(text)) return IpAddress(*four);
  if (const auto six = Nimnet::Ip6Addr::parse(text)) return IpAddress(*six);
  return std::nullopt;
}

/// Reads A, A:PORT or [A]:PORT. A missing port is no mistake here: only the end of the text shows whether one
/// is needed.
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
    if (!*port) return at.fail(Config::orNearest(expected, portText, Config::namesOf(Config::portNames())));
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
  } else if (at.takeIf("type")) {
    return readNumber(at, "an ICMP type", 255, &draft.icmpType) &&
           (!at.takeIf("code") || readNumber(at, "an ICMP code", 255, &draft.icmpCode));
  } else if (Config::isDigits(at.peek()) && at.peek(1) != "octets") {
    if (!readNumber(at, "an ICMP type", 255, &draft.icmpType)) return false;
    if (Config::isDigits(at.peek()) && at.peek(1) != "octets")
      return readNumber(at, "an ICMP code", 255, &draft.icmpCode);
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

bool readType(Cursor& at, Draft& draft) {
  std::optional<uint16_t> type = Config::etherTypeNumber(at.peek());
  if (const auto number = Config::hexadecimal(at.peek()); number && *number <= 0xffff)
    type = static_cast<uint16_t>(*number);
  return readAs(at, "an ethertype by name, or 0x0000 to 0xffff", type, &draft.etherType);
}

bool readEthKind(Cursor& at, Draft& draft) {
  return readMac(at, &draft.from) && at.keyword(">") && readMac(at, &draft.to) && readType(at, draft);
}

bool readTypeKind(Cursor& at, Draft& draft) {
  draft.ethernet = false;
  return readType(at, draft);
}

bool readCutKind(Cursor& at, Draft& draft) {
  draft.cutOff = true;
  return at.keyword("off");
}

constexpr FrameWord allKinds[] = {
    {"tcp", readPortsKind<IpProtocol::tcp>},
    {"udp", readPortsKind<IpProtocol::udp>},
    {"sctp", readPortsKind<IpProtocol::sctp>},
    {"icmp", readIcmpKind<IpProtocol::icmp, 8>},
    {"icmpv6", readIcmpKind<IpProtocol::icmp6, 128>},
    {"ip", readIpKind<false>},
    {"ipv6", readIpKind<true>},
    {"arp", readArpKind},
    {"eth", readEthKind},
    {"type", readTypeKind},
    {"cut", readCutKind},
};

}  // namespace

std::span<const FrameWord> frameKinds() { return allKinds; }

}  // namespace Agent
