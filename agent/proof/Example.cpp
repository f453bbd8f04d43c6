#include <Nimnet/Addr.h>
#include <Nimnet/EthHdr.h>
#include <Nimnet/IpHdr.h>
#include <Nimnet/L4Hdr.h>
#include <agent/proof/Example.h>
#include <fmt/format.h>

#include <array>
#include <string_view>
#include <utility>

namespace Proof {

namespace {

namespace IpProtocol = Nimnet::IpProtocol;
namespace EtherType = Nimnet::EtherType;
using Acl::AclType;

std::string macOf(const Packet& packet, Field field) {
  return Nimnet::EthAddr::fromValue(packet[field].low).str();
}

std::string flagWords(uint64_t flags) {
  using Nimnet::TcpHdr;
  constexpr std::pair<uint8_t, std::string_view> names[] = {{TcpHdr::syn, " syn"}, {TcpHdr::ack, " ack"},
                                                            {TcpHdr::fin, " fin"}, {TcpHdr::rst, " rst"},
                                                            {TcpHdr::psh, " psh"}, {TcpHdr::urg, " urg"}};
  std::string words;
  for (const auto& [bit, name] : names) words += (flags & bit) != 0 ? name : "";
  return words;
}

/// The first word of an IP packet, and whether its protocol has to be named besides.
std::pair<std::string_view, bool> kindOf(AclType type, uint64_t protocol) {
  const bool four = type == AclType::ip;
  switch (protocol) {
    case IpProtocol::tcp:
      return {"tcp", false};
    case IpProtocol::udp:
      return {"udp", false};
    case IpProtocol::sctp:
      return {"sctp", false};
    case IpProtocol::icmp:
      if (four) return {"icmp", false};
      break;
    case IpProtocol::icmp6:
      if (!four) return {"icmpv6", false};
      break;
    default:
      break;
  }
  return {four ? "ip" : "ipv6", true};
}

std::string ipExample(AclType type, const Packet& packet) {
  const bool four = type == AclType::ip, later = packet[Field::later].low != 0;
  const uint64_t protocol = packet[Field::protocol].low;
  const auto [kind, named] = kindOf(type, protocol);
  const bool ports = kind == "tcp" || kind == "udp" || kind == "sctp";
  const auto end = [&](Field address, Field port) {
    const Value& value = packet[address];
    const std::string text = four ? Nimnet::IpAddr{static_cast<uint32_t>(value.low)}.str()
                                  : Nimnet::Ip6Addr{value.high, value.low}.str();
    if (!ports || later) return text;
    return fmt::format("{}{}{}:{}", four ? "" : "[", text, four ? "" : "]", packet[port].low);
  };
  std::string text = fmt::format("{} {} > {}", kind, end(Field::source, Field::sourcePort),
                                 end(Field::destination, Field::destinationPort));
  if (named) text += fmt::format(" protocol {}", protocol);
  if (later) {
    text += " later fragment";
  } else if (protocol == IpProtocol::tcp) {
    text += flagWords(packet[Field::tcpFlags].low);
  } else if (kind.starts_with("icmp")) {
    text += fmt::format(" type {} code {}", packet[Field::icmpType].low, packet[Field::icmpCode].low);
  }
  if (const auto value = packet[Field::trafficClass].low; value != 0)
    text += fmt::format(" traffic-class {}", value);
  if (const auto value = packet[Field::hops].low; value != 64)
    text += fmt::format(" {} {}", four ? "ttl" : "hop-limit", value);
  return text;
}

/// A frame whose type stands behind LLC and SNAP (RFC 1042): behind Ethernet II it would be a tag's.
std::string snapOctets(const Packet& packet) {
  std::string vlan;
  if (const auto id = packet[Field::vlan].low; id != 0)
    vlan = fmt::format("{:04x}{:04x}", EtherType::vlan, id);
  return fmt::format("{:012x}{:012x}{}0008aaaa03000000{:04x}", packet[Field::destination].low,
                     packet[Field::source].low, vlan, packet[Field::etherType].low);
}

/// IP has to be a whole packet: zeros behind its type are malformed.
std::string macExample(const Packet& packet) {
  const auto type = static_cast<uint16_t>(packet[Field::etherType].low);
  const std::string from = macOf(packet, Field::source), to = macOf(packet, Field::destination);
  if (type == EtherType::ip) return fmt::format("ip 0.0.0.0 > 0.0.0.0 from {} to {}", from, to);
  if (type == EtherType::ip6) return fmt::format("ipv6 :: > :: from {} to {}", from, to);
  return fmt::format("eth {} > {} 0x{:04x}", from, to, type);
}

}  // namespace

std::string exampleText(AclType type, const Packet& packet) {
  if (type == AclType::mac && EtherType::isTag(static_cast<uint16_t>(packet[Field::etherType].low)))
    return snapOctets(packet);
  std::string text = type == AclType::mac ? macExample(packet) : ipExample(type, packet);
  if (const auto id = packet[Field::vlan].low; id != 0) text += fmt::format(" vlan {}", id);
  return text;
}

std::string exampleText(AclType type, const Packet& packet, const Packet& frame) {
  return fmt::format("{} from {} to {}", exampleText(type, packet), macOf(frame, Field::source),
                     macOf(frame, Field::destination));
}

}  // namespace Proof
