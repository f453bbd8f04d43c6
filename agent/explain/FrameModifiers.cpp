// Reads the words behind the addresses in the text of a frame.
#include <Velo/ParsedPacket.h>
#include <agent/config/Mistake.h>
#include <agent/config/Names.h>
#include <agent/config/Nearest.h>
#include <agent/explain/FrameWords.h>
#include <agent/show/PacketText.h>

#include <algorithm>

namespace Agent {

namespace {

namespace IpProtocol = Nimnet::IpProtocol;
using Config::Cursor;
using Nimnet::TcpHdr;

constexpr size_t largestFrame = 65535;
constexpr uint32_t defaultFragmentOffset = 185;  // behind 1,480 octets, the first fragment of 1,500

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
  } else if (!Config::isDigits(at.peek())) {
    return at.fail(
        Config::orNearest("a DSCP name or 0 to 63", at.peek(), Config::namesOf(Config::dscpNames())));
  } else if (!readNumber(at, "a dscp", 63, &value)) {
    return false;
  }
  draft.trafficClass = static_cast<uint8_t>(value << 2);
  return true;
}

bool readProtocol(Cursor& at, Draft& draft) {
  if (!draft.anyProtocol) return at.failAt(at.position() - 1, "no protocol: the first word has said it");
  if (at.takeIf("unknown")) {
    draft.unknownProtocol = true;
    return true;
  }
  std::optional<uint8_t> value = Config::protocolNumber(at.peek());
  if (const auto number = Config::decimal(at.peek()); number && *number <= 255)
    value = static_cast<uint8_t>(*number);
  uint8_t protocol = 0;
  if (!readAs(at,
              Config::orNearest("a protocol by name, or 0 to 255", at.peek(),
                                Config::namesOf(Config::protocolNames())),
              value, &protocol))
    return false;
  draft.protocol = protocol;
  return true;
}

bool readFragment(Cursor& at, Draft& draft) {
  uint32_t offset = defaultFragmentOffset;
  if (Config::isDigits(at.peek()) && at.peek(1) != "octets" &&
      !at.number("a fragment offset", 1, 8191, &offset))
    return false;
  draft.fragmentOffset = offset;
  return true;
}

bool readLater(Cursor& at, Draft& draft) { return at.keyword("fragment") && readFragment(at, draft); }

bool readFirst(Cursor& at, Draft& draft) {
  if (!draft.protocol) return at.failAt(at.position() - 1, "no fragment of a frame that is not IP");
  draft.firstFragment = true;
  return at.keyword("fragment");
}

bool readInner(Cursor& at, Draft& draft) {
  if (draft.vlans.size() != 1) return at.failAt(at.position() - 1, "a vlan before the inner one");
  return at.keyword("vlan") && readVlan(at, draft);
}

bool readHeaders(Cursor& at, Draft& draft) {
  if (!isSix(draft.source))
    return at.failAt(at.position() - 1, "no extension headers in a frame that is not IPv6");
  const auto names = extensionNames();
  const auto named = [&] {
    return std::find_if(names.begin(), names.end(),
                        [&](const ExtensionName& each) { return each.name == at.peek(); });
  };
  if (named() == names.end()) return at.fail(Config::anyOf(Config::namesOf(names)));
  for (; named() != names.end(); at.take()) {
    if (draft.headers.size() == Velo::ParsedPacket::maxIp6Headers)
      return at.fail("no ninth extension header");
    draft.headers.push_back(named()->header);
  }
  return true;
}

/// What a frame has not: "no flags", "no ethernet header".
bool readNo(Cursor& at, Draft& draft) {
  if (at.peek() == "flags" && draft.protocol == IpProtocol::tcp) {
    at.take();
    draft.tcpFlags = 0;
    return true;
  }
  draft.ethernet = false;
  return at.keyword("ethernet") && at.keyword("header");
}

bool readPort(Cursor& at, Draft& draft) { return at.name("the name of a port", &draft.port); }

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

constexpr FrameWord modifiers[] = {
    {"vlan", readVlan},
    {"from", [](Cursor& at, Draft& draft) { return readMac(at, &draft.from); }},
    {"to", [](Cursor& at, Draft& draft) { return readMac(at, &draft.to); }},
    {"ttl", [](Cursor& at, Draft& draft) { return readNumber(at, "a ttl", 255, &draft.hops); }},
    {"hop-limit", [](Cursor& at, Draft& draft) { return readNumber(at, "a hop limit", 255, &draft.hops); }},
    {"dscp", readDscp},
    {"traffic-class",
     [](Cursor& at, Draft& draft) { return readNumber(at, "a traffic class", 255, &draft.trafficClass); }},
    {"protocol", readProtocol},
    {"first", readFirst},
    {"later", readLater},
    {"fragment", readFragment},
    {"headers", readHeaders},
    {"inner", readInner},
    {"no", readNo},
    {"on", readPort},
    {"size", readSize},
    {"syn", readFlag<TcpHdr::syn>},
    {"ack", readFlag<TcpHdr::ack>},
    {"fin", readFlag<TcpHdr::fin>},
    {"rst", readFlag<TcpHdr::rst>},
    {"psh", readFlag<TcpHdr::psh>},
    {"urg", readFlag<TcpHdr::urg>},
};

}  // namespace

std::span<const FrameWord> frameModifiers() { return modifiers; }

}  // namespace Agent
