#include <Velo/ParsedPacket.h>

#include <Velo/ParseIp6Chain.h>

#include <algorithm>
#include <cstring>

namespace Velo {

namespace EtherType = Nimnet::EtherType;
namespace IpProtocol = Nimnet::IpProtocol;

namespace {

/// The LLC header for SNAP with unnumbered information, and the organisation code with which the next 16 bits
/// are an EtherType.
constexpr uint8_t snapStart[] = {0xaa, 0xaa, 0x03, 0x00, 0x00, 0x00};
constexpr uint32_t snapSize = 8;
constexpr uint32_t tagSize = 4;

/// A header where it lies in the frame; the overlays are bytes with an alignment of 1.
template <class Hdr>
const Hdr* overlay(const uint8_t* at) {
  return reinterpret_cast<const Hdr*>(at);
}

}  // namespace

void ParsedPacket::reset(Nimnet::Pkt* pkt) {
  pkt_ = pkt;
  eth_ = {};
  l4_ = {};
  l3At_ = l3End_ = 0;
  fault_ = ParseFault::none;
  hasIp_ = false;
  fullyParsed_ = false;
  pkt->frontOffsetIs(0);
  pkt->vlanIdIs(0);
  readEthernet();
}

void ParsedPacket::readEthernet() {
  const uint8_t* frame = pkt_->frame().data();
  const uint32_t size = pkt_->size();
  uint32_t at = 0;  // of what stands behind the field of the type
  uint16_t type = pkt_->typeBefore();
  if (pkt_->hasEthernet()) {
    if (size < Nimnet::EthHdr::size) return faultIs(ParseFault::ethHeaderCut);
    eth_.ethHdr_ = overlay<Nimnet::EthHdr>(frame);
    at = Nimnet::EthHdr::size;
    type = eth_.ethHdr_->typeOrLen();
  }
  eth_.typeOrLen_ = type;
  for (uint32_t tags = 0; EtherType::isTag(type); ++tags) {
    if (tags == maxTags) return faultIs(ParseFault::tooManyTags);
    if (size - at < tagSize) return faultIs(ParseFault::tagCut);
    if (tags == 0) pkt_->vlanIdIs(Nimnet::read16(frame + at) & 0x0fff);
    type = Nimnet::read16(frame + at + 2);
    at += tagSize;
    eth_.typeOrLen_ = type;
  }

  l3At_ = at;
  l3End_ = pkt_->wireLength();
  if (type > EtherType::maxLength || type < snapSize || size - l3At_ < snapSize) return;
  if (std::memcmp(frame + l3At_, snapStart, sizeof snapStart) != 0) return;
  // The 802.3 length counts from the LLC header on. Octets behind it are padding.
  l3End_ = std::min(l3End_, l3At_ + type);
  eth_.typeOrLen_ = Nimnet::read16(frame + l3At_ + sizeof snapStart);
  l3At_ += snapSize;
}

void ParsedPacket::doFullParse() {
  fullyParsed_ = true;
  // After a fault of the first stage the type is that of a tag, or 0.
  if (eth_.typeOrLen_ == EtherType::ip) {
    readIp();
  } else if (eth_.typeOrLen_ == EtherType::ip6) {
    readIp6();
  }
}

void ParsedPacket::readIp() {
  const uint32_t readable = std::min(pkt_->size(), l3End_) - l3At_;
  if (readable < Nimnet::IpHdr::minSize) return faultIs(ParseFault::ipHeaderCut);
  const auto* ip = overlay<Nimnet::IpHdr>(pkt_->frame().data() + l3At_);
  if (ip->version() != 4) return faultIs(ParseFault::ipVersion);
  ip_.ipHdr_ = ip;
  hasIp_ = true;
  pkt_->frontOffsetIs(l3At_);

  const uint32_t headerLength = ip->headerLength();
  const uint32_t totalLength = ip->totalLength();
  if (headerLength < Nimnet::IpHdr::minSize) return faultIs(ParseFault::ipHeaderLength);
  if (totalLength < headerLength) return faultIs(ParseFault::ipTotalLengthTooShort);
  if (totalLength > l3End_ - l3At_) faultIs(ParseFault::ipTotalLengthTooLong);
  if (headerLength > readable) return faultIs(ParseFault::ipHeaderCut);

  if (ip->isNonFirstFragment()) {
    if (ip->protocol() == IpProtocol::tcp && ip->fragmentOffset() == 1)
      faultIs(ParseFault::tcpFragmentAtOffsetOne);
    return;
  }
  const uint32_t declaredEnd = std::min(l3At_ + totalLength, l3End_);
  if (ip->protocol() == IpProtocol::icmp) {
    l4_.hdr_ = readL4Hdr<Nimnet::IcmpHdr>(l3At_ + headerLength, declaredEnd, ParseFault::icmpHeaderCut);
  } else {
    readL4(ip->protocol(), l3At_ + headerLength, declaredEnd);
  }
}

void ParsedPacket::readIp6() {
  const uint32_t readable = std::min(pkt_->size(), l3End_) - l3At_;
  if (readable < Nimnet::Ip6Hdr::size) return faultIs(ParseFault::ip6HeaderCut);
  const uint8_t* frame = pkt_->frame().data();
  Nimnet::Ip6Hdr fixed(frame + l3At_, {});
  if (fixed.version() != 6) return faultIs(ParseFault::ip6Version);

  const uint32_t chainAt = l3At_ + Nimnet::Ip6Hdr::size;
  if (fixed.payloadLength() > l3End_ - chainAt) faultIs(ParseFault::ip6PayloadLengthTooLong);
  const uint32_t declaredEnd = std::min(chainAt + fixed.payloadLength(), l3End_);
  Nimnet::Ip6Chain chain;
  uint32_t upperAt = chainAt;
  const ParseFault chainFault = walkIp6Chain(frame, upperAt, std::min(declaredEnd, pkt_->size()),
                                             fixed.nextHeader(), maxIp6Headers, chain);
  ip_.ipHdr_ = nullptr;
  ip_.ip6Hdr_ = Nimnet::Ip6Hdr(frame + l3At_, chain);
  hasIp_ = true;
  pkt_->frontOffsetIs(l3At_);
  if (chainFault != ParseFault::none) return faultIs(chainFault);

  if (chain.fragmentOffset != 0) {
    if (chain.protocol == IpProtocol::tcp && chain.fragmentOffset == 1)
      faultIs(ParseFault::tcpFragmentAtOffsetOne);
  } else if (chain.protocol == IpProtocol::icmp6) {
    l4_.hdr_ = readL4Hdr<Nimnet::Icmp6Hdr>(upperAt, declaredEnd, ParseFault::icmp6HeaderCut);
  } else {
    readL4(chain.protocol, upperAt, declaredEnd);
  }
}

/// Reads the L4 header, which can be the same for both kinds of IP. `declaredEnd` is where the packet ends
/// within the frame; a capture may end earlier.
void ParsedPacket::readL4(uint8_t protocol, uint32_t at, uint32_t declaredEnd) {
  if (protocol == IpProtocol::tcp) {
    l4_.hdr_ = readL4Hdr<Nimnet::TcpHdr>(at, declaredEnd, ParseFault::tcpHeaderCut);
    const Nimnet::TcpHdr* tcp = l4_.tcp();
    if (!tcp) return;
    const uint32_t headerLength = tcp->headerLength();
    if (headerLength < Nimnet::TcpHdr::minSize) {
      faultIs(ParseFault::tcpDataOffsetTooShort);
    } else if (headerLength > declaredEnd - at) {
      faultIs(ParseFault::tcpDataOffsetTooLong);
    }
  } else if (protocol == IpProtocol::udp) {
    l4_.hdr_ = readL4Hdr<Nimnet::UdpHdr>(at, declaredEnd, ParseFault::udpHeaderCut);
    const Nimnet::UdpHdr* udp = l4_.udp();
    if (udp && udp->length() < Nimnet::UdpHdr::minSize) faultIs(ParseFault::udpLengthTooShort);
  } else if (protocol == IpProtocol::sctp) {
    l4_.hdr_ = readL4Hdr<Nimnet::SctpHdr>(at, declaredEnd, ParseFault::sctpHeaderCut);
  }
}

template <class Hdr>
Nimnet::L4 ParsedPacket::readL4Hdr(uint32_t at, uint32_t declaredEnd, ParseFault whenCut) {
  const uint32_t end = std::min(declaredEnd, pkt_->size());
  if (end - at < Hdr::minSize) {
    faultIs(whenCut);
    return {};
  }
  return Nimnet::L4(overlay<Hdr>(pkt_->frame().data() + at));
}

}  // namespace Velo
