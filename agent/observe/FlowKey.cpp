#include <agent/observe/FlowKey.h>
#include <agent/show/PacketText.h>
#include <fmt/format.h>

namespace Agent {

namespace {

using Kind = FlowKey::Kind;

template <class Icmp>
void icmpIs(FlowKey& flow, const Icmp* icmp) {
  flow.kind = Kind::icmp;
  flow.first = icmp->type();
  flow.second = icmp->code();
}

template <class Hdr>
void portsAre(FlowKey& flow, const Hdr* hdr) {
  flow.kind = Kind::ports;
  flow.first = hdr->sourcePort();
  flow.second = hdr->destinationPort();
}

void addressesAre(FlowKey& flow, const Velo::ParsedIpHdr& ip) {
  if (const auto* six = ip.ip6Hdr()) {
    const auto source = six->source(), destination = six->destination();
    flow.source[0] = source.high;
    flow.source[1] = source.low;
    flow.destination[0] = destination.high;
    flow.destination[1] = destination.low;
    flow.protocol = six->protocolKnown() ? six->protocol() : 0;
    flow.kind = !six->protocolKnown()       ? Kind::unknownProtocol
                : six->isNonFirstFragment() ? Kind::laterFragment
                                            : Kind::protocolOnly;
    return;
  }
  const Nimnet::IpHdr& four = *ip.ipHdr();
  flow.source[1] = four.source().value;
  flow.destination[1] = four.destination().value;
  flow.protocol = four.protocol();
  if (four.isNonFirstFragment()) flow.kind = Kind::laterFragment;
}

std::string addressText(Acl::AclType type, const uint64_t (&address)[2]) {
  switch (type) {
    case Acl::AclType::mac:
      return Nimnet::EthAddr::fromValue(address[1]).str();
    case Acl::AclType::ipv6:
      return Nimnet::Ip6Addr{address[0], address[1]}.str();
    case Acl::AclType::ip:
      break;
  }
  return Nimnet::IpAddr{static_cast<uint32_t>(address[1])}.str();
}

std::string endText(const FlowKey& flow, const uint64_t (&address)[2], uint16_t port) {
  const std::string text = addressText(flow.type, address);
  return flow.kind == Kind::ports ? fmt::format("{}({})", text, port) : text;
}

}  // namespace

FlowKey flowOf(Acl::AclType type, const Velo::ParsedPacket& parsed) {
  FlowKey flow;
  flow.type = type;
  if (type == Acl::AclType::mac) {
    flow.kind = Kind::ethernet;
    flow.first = parsed.typeOrLen();
    if (const auto* eth = parsed.ethPacket()->ethHdr()) {
      flow.source[1] = eth->source().value();
      flow.destination[1] = eth->destination().value();
    }
    return flow;
  }
  if (const auto* ip = parsed.ipHdr()) addressesAre(flow, *ip);
  const Velo::ParsedL4& l4 = parsed.l4();
  if (l4.tcp()) portsAre(flow, l4.tcp());
  if (l4.udp()) portsAre(flow, l4.udp());
  if (l4.sctp()) portsAre(flow, l4.sctp());
  if (l4.icmp()) icmpIs(flow, l4.icmp());
  if (l4.icmp6()) icmpIs(flow, l4.icmp6());
  return flow;
}

std::string flowProtocol(const FlowKey& flow) {
  if (flow.kind == Kind::ethernet) return fmt::format("0x{:04x}", flow.first);
  return flow.kind == Kind::unknownProtocol ? "unknown" : protocolText(flow.protocol);
}

std::pair<std::string, std::string> flowAddresses(const FlowKey& flow) {
  return {addressText(flow.type, flow.source), addressText(flow.type, flow.destination)};
}

std::string flowSource(const FlowKey& flow) { return endText(flow, flow.source, flow.first); }
std::string flowDestination(const FlowKey& flow) { return endText(flow, flow.destination, flow.second); }

std::string flowRest(const FlowKey& flow) {
  if (flow.kind == Kind::icmp) return fmt::format(" type {} code {}", flow.first, flow.second);
  return flow.kind == Kind::laterFragment ? " later fragment" : "";
}

}  // namespace Agent
