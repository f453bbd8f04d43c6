#pragma once

#include <Nimnet/EthHdr.h>
#include <Nimnet/Ip6Hdr.h>
#include <Nimnet/IpHdr.h>
#include <Nimnet/L4Hdr.h>
#include <Nimnet/Pkt.h>
#include <Velo/ParseFault.h>

#include <cstdint>
#include <string_view>

namespace Velo {

/// The Ethernet stage of a parse.
class ParsedEthPacket {
 public:
  /// Null when the frame is shorter than an Ethernet header, or a packet that has none.
  const Nimnet::EthHdr* ethHdr() const { return ethHdr_; }
  /// The type or length field behind the tags; behind a length the SNAP type, where LLC and SNAP with the
  /// organisation code 00-00-00 are there (RFC 1042). 0 when the Ethernet header is not all there.
  uint16_t typeOrLen() const { return typeOrLen_; }

 private:
  friend class ParsedPacket;
  const Nimnet::EthHdr* ethHdr_ = nullptr;
  uint16_t typeOrLen_ = 0;
};

/// The IP header of a packet, either kind.
class ParsedIpHdr {
 public:
  /// Exactly "Ipv4" or "Ipv6".
  std::string_view protocolName() const { return ipHdr_ ? "Ipv4" : "Ipv6"; }
  /// Null of IPv6.
  const Nimnet::IpHdr* ipHdr() const { return ipHdr_; }
  /// Null of IPv4.
  const Nimnet::Ip6Hdr* ip6Hdr() const { return ipHdr_ ? nullptr : &ip6Hdr_; }

 private:
  friend class ParsedPacket;
  const Nimnet::IpHdr* ipHdr_ = nullptr;
  Nimnet::Ip6Hdr ip6Hdr_;
};

/// The header behind IP: at most one is there. Non-first fragments have none, nor has ICMP inside IPv6,
/// ICMPv6 inside IPv4, or a header of which less than its fixed size lies within the packet and the capture.
class ParsedL4 {
 public:
  const Nimnet::TcpHdr* tcp() const { return hdr_.as<Nimnet::TcpHdr>(); }
  const Nimnet::UdpHdr* udp() const { return hdr_.as<Nimnet::UdpHdr>(); }
  const Nimnet::IcmpHdr* icmp() const { return hdr_.as<Nimnet::IcmpHdr>(); }
  const Nimnet::Icmp6Hdr* icmp6() const { return hdr_.as<Nimnet::Icmp6Hdr>(); }
  const Nimnet::SctpHdr* sctp() const { return hdr_.as<Nimnet::SctpHdr>(); }
  /// Whichever of them it is.
  const Nimnet::L4& hdr() const { return hdr_; }

 private:
  friend class ParsedPacket;
  Nimnet::L4 hdr_;
};

/// The headers of a frame, read in two stages: reset() reads Ethernet and its tags, maybeDoFullParse() the
/// rest. Part of a packet context, and used again for the next frame; owns nothing and allocates nothing.
/// Every header that it returns lies in the frame of the packet, and is valid until the packet gets another
/// frame.
///
/// IP is what follows the type 0x0800 or 0x86dd, behind up to two tags, of Ethernet II and of SNAP alike.
/// Behind MPLS and every other type nothing is read, nor are tags behind SNAP: there is no IP header then.
///
/// For a malformed frame the headers before the fault are there, and fault() says what ended the parse. An IP
/// header of the right version with all its fixed octets is there whatever its lengths say.
class ParsedPacket {
 public:
  /// Tags that are read; one more makes the frame malformed.
  static constexpr uint32_t maxTags = 2;
  /// IPv6 extension headers that are read.
  static constexpr uint32_t maxIp6Headers = 8;

  /// Starts with the next frame. Sets the VLAN id of `pkt`, and its front offset to 0. `pkt` must stay alive
  /// as long as this is used.
  void reset(Nimnet::Pkt* pkt);

  /// Reads the rest of the frame; a second call does nothing. Sets the front offset of the packet to its IP
  /// header, if it has one.
  void maybeDoFullParse() {
    if (!fullyParsed_) doFullParse();
  }

  const ParsedEthPacket* ethPacket() const { return &eth_; }
  uint16_t typeOrLen() const { return eth_.typeOrLen_; }

  // Results of the full parse; null and empty before it.
  const ParsedIpHdr* ipHdr() const { return hasIp_ ? &ip_ : nullptr; }
  const ParsedL4& l4() const { return l4_; }

  /// The fault that was found so far; after maybeDoFullParse(), in the whole frame.
  ParseFault fault() const { return fault_; }

 private:
  void readEthernet();
  void doFullParse();
  void readIp();
  void readIp6();
  void readL4(uint8_t protocol, uint32_t at, uint32_t declaredEnd);
  template <class Hdr>
  Nimnet::L4 readL4Hdr(uint32_t at, uint32_t declaredEnd, ParseFault whenCut);
  void faultIs(ParseFault fault) {
    if (fault_ == ParseFault::none) fault_ = fault;
  }

  Nimnet::Pkt* pkt_ = nullptr;
  ParsedEthPacket eth_;
  ParsedIpHdr ip_;
  ParsedL4 l4_;
  uint32_t l3At_ = 0;   ///< where the header behind Ethernet begins
  uint32_t l3End_ = 0;  ///< where the frame ends, on the wire and by the 802.3 length; a capture may end
                        ///< earlier
  ParseFault fault_ = ParseFault::none;
  bool hasIp_ = false;
  bool fullyParsed_ = true;
};

}  // namespace Velo
