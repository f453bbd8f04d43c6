#include <Acl/MatchFields.h>

namespace Acl {

IpFields::IpFields(const Nimnet::IpHdr& ip) : source(ip.source()), destination(ip.destination()) {
  protocol = ip.protocol();
  trafficClass = ip.tos();
  hops = ip.ttl();
  nonFirstFragment = ip.isNonFirstFragment();
}

Ip6Fields::Ip6Fields(const Nimnet::Ip6Hdr& ip6) : source(ip6.source()), destination(ip6.destination()) {
  protocolKnown = ip6.protocolKnown();
  protocol = ip6.protocol();
  trafficClass = ip6.trafficClass();
  hops = ip6.hopLimit();
  nonFirstFragment = ip6.isNonFirstFragment();
}

namespace Shown {

std::string vlan(bool known, uint16_t id) {
  if (!known) return "unknown";
  return id == 0 ? "untagged" : std::to_string(id);
}

std::string protocol(const IpBaseFields& packet) { return number(packet.protocolKnown, packet.protocol); }

std::string number(bool known, uint32_t value) { return known ? std::to_string(value) : "none"; }

std::string tcpFlags(const IpBaseFields& packet) {
  if (!packet.hasTcp) return "no tcp header";
  static constexpr std::pair<uint8_t, std::string_view> names[] = {
      {Nimnet::TcpHdr::syn, "syn"}, {Nimnet::TcpHdr::ack, "ack"}, {Nimnet::TcpHdr::fin, "fin"},
      {Nimnet::TcpHdr::rst, "rst"}, {Nimnet::TcpHdr::psh, "psh"}, {Nimnet::TcpHdr::urg, "urg"}};
  std::string text;
  for (const auto& [bit, name] : names) {
    if ((packet.tcpFlags & bit) == 0) continue;
    text += text.empty() ? "" : " ";
    text += name;
  }
  return text.empty() ? "no flags" : text;
}

}  // namespace Shown

}  // namespace Acl
