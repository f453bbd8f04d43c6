#include <Acl/MatchFields.h>
#include <Velo/ParseIp6Chain.h>
#include <agent/config/Names.h>
#include <agent/show/PacketText.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

namespace IpProtocol = Nimnet::IpProtocol;

constexpr ExtensionName extensions[] = {
    {"hop-by-hop", IpProtocol::hopByHop},
    {"routing", IpProtocol::routing},
    {"ah", IpProtocol::ah},
    {"destination-options", IpProtocol::destinationOptions},
};

std::string nameOrNumber(std::span<const Config::NamedNumber> names, uint16_t number) {
  const auto at =
      std::find_if(names.begin(), names.end(), [number](const auto& each) { return each.number == number; });
  return at == names.end() ? std::to_string(number) : std::string(at->name);
}

std::string_view extensionName(uint8_t header) {
  const auto* at = std::find_if(std::begin(extensions), std::end(extensions),
                                [header](const ExtensionName& each) { return each.header == header; });
  return at == std::end(extensions) ? "" : at->name;
}

/// ", headers hop-by-hop routing": those that are read, in their order.
std::string headersText(const Nimnet::Pkt& pkt, const Nimnet::Ip6Hdr& ip) {
  const auto begin = static_cast<uint32_t>(ip.fixed() - pkt.frame().data());
  uint32_t at = begin + Nimnet::Ip6Hdr::size;
  const uint32_t end = std::min(at + ip.payloadLength(), pkt.size());
  uint8_t next = ip.nextHeader();
  std::string text;
  bool fragment = false;
  for (uint32_t read = 0; read < Velo::ParsedPacket::maxIp6Headers; ++read) {
    // A walk for each header: it may read one only, and so ends behind it.
    Nimnet::Ip6Chain one;
    const uint32_t header = at;
    Velo::walkIp6Chain(pkt.frame().data(), at, end, next, 1, one);
    if (at == header || (next == IpProtocol::fragment && std::exchange(fragment, true))) break;
    if (next != IpProtocol::fragment) text += fmt::format(" {}", extensionName(next));
    if (one.fragmentOffset != 0) break;
    next = pkt.frame()[header];
  }
  return text.empty() ? "" : ", headers" + text;
}

template <class Header>
std::string fragmentText(const Header& ip, uint32_t offset) {
  if (ip.isNonFirstFragment()) return fmt::format(", later fragment {}", offset);
  return ip.isFragment() ? ", first fragment" : "";
}

std::string ipSummary(const Velo::ParsedPacket& parsed) {
  const Velo::ParsedL4& l4 = parsed.l4();
  const auto* six = parsed.ipHdr()->ip6Hdr();
  const auto* four = parsed.ipHdr()->ipHdr();
  const std::string source = six ? six->source().str() : four->source().str();
  const std::string destination = six ? six->destination().str() : four->destination().str();
  const auto withPorts = [&](std::string_view name, const auto* hdr) {
    const auto end = [six](const std::string& address, uint16_t port) {
      return six ? fmt::format("[{}]:{}", address, port) : fmt::format("{}:{}", address, port);
    };
    return fmt::format("{} {} > {}", name, end(source, hdr->sourcePort()),
                       end(destination, hdr->destinationPort()));
  };
  if (l4.tcp()) {
    Acl::IpBaseFields fields;
    fields.l4Is(l4.hdr());
    return withPorts("tcp", l4.tcp()) + " " + Acl::Shown::tcpFlags(fields);
  }
  if (l4.udp()) return withPorts("udp", l4.udp());
  if (l4.sctp()) return withPorts("sctp", l4.sctp());
  const std::string ends = fmt::format("{} > {}", source, destination);
  if (l4.icmp()) return fmt::format("icmp {} type {} code {}", ends, l4.icmp()->type(), l4.icmp()->code());
  if (l4.icmp6())
    return fmt::format("icmpv6 {} type {} code {}", ends, l4.icmp6()->type(), l4.icmp6()->code());
  const bool known = !six || six->protocolKnown();
  return fmt::format("{} {} protocol {}", six ? "ipv6" : "ip", ends,
                     known ? protocolText(six ? six->protocol() : four->protocol()) : "unknown");
}

/// ", dscp ef"; with the two bits behind it, which only rules for IPv6 can ask for, ", traffic-class 185".
std::string classText(uint8_t trafficClass, bool six) {
  if (six && (trafficClass & 0x03) != 0) return fmt::format(", traffic-class {}", trafficClass);
  const uint8_t dscp = trafficClass >> 2;
  return dscp == 0 ? "" : ", dscp " + nameOrNumber(Config::dscpNames(), dscp);
}

std::string hopsText(std::string_view word, uint8_t hops) {
  return hops == Unsaid::hops ? "" : fmt::format(", {} {}", word, hops);
}

/// ", from 02:00:5e:00:00:01, to 02:00:5e:00:00:02".
std::string addressesText(const Velo::ParsedPacket& parsed) {
  const auto* eth = parsed.ethPacket()->ethHdr();
  if (!eth) return "";
  const auto end = [](std::string_view word, const Nimnet::EthAddr& address, const Nimnet::EthAddr& unsaid) {
    return address == unsaid ? "" : fmt::format(", {} {}", word, address.str());
  };
  return end("from", eth->source(), Unsaid::from) + end("to", eth->destination(), Unsaid::to);
}

/// What is told of the header of an IP packet beside its ends and protocol.
std::string headerText(const Nimnet::Pkt& pkt, const Velo::ParsedIpHdr& ip) {
  if (const auto* four = ip.ipHdr()) {
    return fragmentText(*four, four->fragmentOffset()) + classText(four->tos(), false) +
           hopsText("ttl", four->ttl());
  }
  const auto* six = ip.ip6Hdr();
  return fragmentText(*six, six->chain().fragmentOffset) + headersText(pkt, *six) +
         classText(six->trafficClass(), true) + hopsText("hop-limit", six->hopLimit());
}

/// ", vlan 7, inner vlan 8": the ids of the tags that are read.
std::string tagsText(const Nimnet::Pkt& pkt, const Velo::ParsedPacket& parsed) {
  const auto* eth = parsed.ethPacket()->ethHdr();
  if (!eth && pkt.hasEthernet()) return "";
  uint16_t type = eth ? eth->typeOrLen() : pkt.typeBefore();
  const char* which = "vlan";
  std::string text;
  for (auto behind = pkt.frame().subspan(eth ? Nimnet::EthHdr::size : 0);
       Nimnet::EtherType::isTag(type) && behind.size() >= 4 && *which; behind = behind.subspan(4)) {
    text += fmt::format(", {} {}", which, Nimnet::read16(behind.data()) & 0x0fff);
    type = Nimnet::read16(behind.data() + 2);
    which = *which == 'v' ? "inner vlan" : "";
  }
  return text;
}

std::string linkSummary(const Nimnet::Pkt& pkt, const Velo::ParsedPacket& parsed) {
  if (const auto* eth = parsed.ethPacket()->ethHdr()) {
    return fmt::format("eth {} > {} 0x{:04x}", eth->source().str(), eth->destination().str(),
                       parsed.typeOrLen());
  }
  return pkt.hasEthernet() ? "cut off" : fmt::format("type 0x{:04x}", parsed.typeOrLen());
}

}  // namespace

std::span<const ExtensionName> extensionNames() { return extensions; }

std::string protocolText(uint8_t protocol) { return nameOrNumber(Config::protocolNames(), protocol); }

std::string packetText(const Nimnet::Pkt& pkt, const Velo::ParsedPacket& parsed, const WholePacket& whole) {
  std::string text = parsed.ipHdr() ? ipSummary(parsed) : linkSummary(pkt, parsed);
  if (const auto* ip = parsed.ipHdr()) {
    text += headerText(pkt, *ip);
    if (whole.addresses) text += addressesText(parsed);
  }
  text += tagsText(pkt, parsed);
  if (!pkt.hasEthernet()) text += ", no ethernet header";
  text += fmt::format(", {} octets", pkt.wireLength());
  if (whole.segments > 1) text += fmt::format(", {} segments", whole.segments);
  if (whole.fault != Velo::ParseFault::none) text += fmt::format(", malformed: {}", reason(whole.fault));
  return text;
}

std::string packetText(const Velo::PacketContext& ctx) {
  return packetText(*ctx.pkt(), ctx.parsedPacket(), {ctx.parsedPacket().fault()});
}

}  // namespace Agent
