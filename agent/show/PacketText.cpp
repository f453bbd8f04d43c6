#include <Acl/MatchFields.h>
#include <agent/show/PacketText.h>
#include <fmt/format.h>

namespace Agent {

namespace {

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
    fields.l4Is<Nimnet::IcmpHdr>(nullptr, l4.tcp(), nullptr, nullptr);
    return withPorts("tcp", l4.tcp()) + " " + Acl::Shown::tcpFlags(fields);
  }
  if (l4.udp()) return withPorts("udp", l4.udp());
  if (l4.sctp()) return withPorts("sctp", l4.sctp());
  const std::string ends = fmt::format("{} > {}", source, destination);
  if (l4.icmp()) return fmt::format("icmp {} type {} code {}", ends, l4.icmp()->type(), l4.icmp()->code());
  if (l4.icmp6())
    return fmt::format("icmpv6 {} type {} code {}", ends, l4.icmp6()->type(), l4.icmp6()->code());
  const bool fragment = six ? six->isNonFirstFragment() : four->isNonFirstFragment();
  return fmt::format(
      "{} {} protocol {}{}", six ? "ipv6" : "ip", ends,
      six ? Acl::Shown::number(six->protocolKnown(), six->protocol()) : std::to_string(four->protocol()),
      fragment ? ", a later fragment" : "");
}

}  // namespace

std::string packetText(const Velo::PacketContext& ctx) {
  const Velo::ParsedPacket& parsed = ctx.parsedPacket();
  std::string text;
  if (parsed.ipHdr()) {
    text = ipSummary(parsed);
  } else if (const auto* eth = parsed.ethPacket()->ethHdr()) {
    text = fmt::format("eth {} > {} 0x{:04x}", eth->source().str(), eth->destination().str(),
                       parsed.typeOrLen());
  } else {
    text = "no ethernet header";
  }
  if (ctx.pkt()->vlanId() != 0) text += fmt::format(", vlan {}", ctx.pkt()->vlanId());
  text += fmt::format(", {} octets", ctx.pkt()->wireLength());
  if (parsed.fault() != Velo::ParseFault::none)
    text += fmt::format(", malformed: {}", reason(parsed.fault()));
  return text;
}

}  // namespace Agent
