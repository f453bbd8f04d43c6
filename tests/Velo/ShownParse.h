#pragma once

#include <Velo/ParsedPacket.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace TestSupport {

template <class Hdr>
inline std::string ports(const char* name, const Hdr* hdr) {
  return hdr ? fmt::format(" {} {}>{}", name, hdr->sourcePort(), hdr->destinationPort()) : "";
}
template <class Hdr>
inline std::string message(const char* name, const Hdr* hdr) {
  return hdr ? fmt::format(" {} {}/{}", name, hdr->type(), hdr->code()) : "";
}

/// Everything that a parse shows, in one line: type, VLAN, IP kind with protocol and fragment, L4, front
/// offset, fault. Reads every octet of every header shown, so that a sanitizer sees one beyond the frame.
inline std::string shown(const Nimnet::Pkt& pkt, const Velo::ParsedPacket& parsed) {
  std::string text = pkt.hasEthernet() ? "no eth" : fmt::format("{:04x} alone", parsed.typeOrLen());
  if (const Nimnet::EthHdr* eth = parsed.ethPacket()->ethHdr()) {
    text = fmt::format("{:04x}", parsed.typeOrLen());
    EXPECT_LE(eth->source().value() | eth->destination().value(), 0xffffffffffffu);
    EXPECT_EQ(parsed.typeOrLen(), parsed.ethPacket()->typeOrLen());
  }
  if (pkt.vlanId()) text += fmt::format(" vlan {}", pkt.vlanId());
  if (const Velo::ParsedIpHdr* ip = parsed.ipHdr()) {
    text += fmt::format(" {}", ip->protocolName());
    if (const Nimnet::IpHdr* hdr = ip->ipHdr()) {
      EXPECT_EQ(ip->ip6Hdr(), nullptr);
      EXPECT_EQ(pkt.data(), hdr->bytes);
      text += fmt::format(" {}>{} {}", hdr->source().str(), hdr->destination().str(), hdr->protocol());
      if (hdr->isFragment())
        text += fmt::format(" frag {}{}", hdr->fragmentOffset(), hdr->moreFragments() ? "+" : "");
    } else {
      const Nimnet::Ip6Hdr& hdr6 = *ip->ip6Hdr();
      EXPECT_EQ(pkt.data(), hdr6.fixed());
      text += fmt::format(" {}>{}", hdr6.source().str(), hdr6.destination().str());
      text += hdr6.protocolKnown() ? fmt::format(" {}", hdr6.protocol()) : " ?";
      if (hdr6.isFragment()) {
        text += fmt::format(" frag {}{}", hdr6.chain().fragmentOffset, hdr6.chain().moreFragments ? "+" : "");
      }
    }
  }
  const Velo::ParsedL4& l4 = parsed.l4();
  text += ports("tcp", l4.tcp()) + ports("udp", l4.udp()) + ports("sctp", l4.sctp());
  text += message("icmp", l4.icmp()) + message("icmp6", l4.icmp6());
  if (l4.tcp()) text += fmt::format(" flags {:02x}", l4.tcp()->flags());
  if (pkt.frontOffset()) text += fmt::format(" @{}", pkt.frontOffset());
  if (parsed.fault() != Velo::ParseFault::none) text += fmt::format(" ! {}", reason(parsed.fault()));
  return text;
}

/// Parses a frame of `wireLength` octets of which `captured` were captured, from memory of exactly that size.
inline std::string parse(const std::vector<uint8_t>& captured, size_t wireLength) {
  Nimnet::Pkt pkt;
  pkt.assign(captured, static_cast<uint32_t>(wireLength), 0);
  Velo::ParsedPacket parsed;
  parsed.reset(&pkt);
  parsed.maybeDoFullParse();
  return shown(pkt, parsed);
}

}  // namespace TestSupport
