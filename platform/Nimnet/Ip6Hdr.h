#pragma once

#include <Nimnet/Addr.h>
#include <Nimnet/Bytes.h>

namespace Nimnet {

/// The result of reading an IPv6 extension-header chain (RFC 8200, 4).
struct Ip6Chain {
  /// The upper-layer protocol: the Next Header value that names no extension header, or that of the fragment
  /// header of a non-first fragment whatever it names. Meaningless unless `protocolKnown`.
  uint8_t protocol = 0;
  /// False when the chain is malformed, so that it is not known what is behind it.
  bool protocolKnown = false;
  /// A fragment header was read; an atomic fragment (RFC 6946) has one, too.
  bool hasFragmentHeader = false;
  bool moreFragments = false;
  /// In units of 8 octets.
  uint16_t fragmentOffset = 0;
};

/// The IPv6 header as parsed (RFC 8200, 3): the 40 fixed octets where they lie in the frame, and the result
/// of the chain behind them, so that the chain is read only once. Unlike the other headers this is no
/// overlay: it points into the frame, and is valid as long as that.
///
///   0..3    version (4 bits), traffic class (8 bits), flow label (20 bits)
///   4..5    payload length, extension headers included
///   6       next header
///   7       hop limit
///   8..23   source
///   24..39  destination
class Ip6Hdr {
 public:
  static constexpr uint32_t size = 40;

  Ip6Hdr() = default;
  /// `fixed`: 40 octets that outlive this object.
  Ip6Hdr(const uint8_t* fixed, const Ip6Chain& chain) : fixed_(fixed), chain_(chain) {}

  uint8_t version() const { return fixed_[0] >> 4; }
  uint8_t trafficClass() const { return static_cast<uint8_t>(read16(fixed_) >> 4); }
  uint8_t dscp() const { return trafficClass() >> 2; }
  uint32_t flowLabel() const { return read32(fixed_) & 0xfffff; }
  /// In octets, without the 40 of this header.
  uint32_t payloadLength() const { return read16(fixed_ + 4); }
  /// The field of the fixed header; the upper-layer protocol is protocol().
  uint8_t nextHeader() const { return fixed_[6]; }
  uint8_t hopLimit() const { return fixed_[7]; }
  Ip6Addr source() const { return {read64(fixed_ + 8), read64(fixed_ + 16)}; }
  Ip6Addr destination() const { return {read64(fixed_ + 24), read64(fixed_ + 32)}; }

  const Ip6Chain& chain() const { return chain_; }
  /// The upper-layer protocol, see Ip6Chain; ask protocolKnown() first.
  uint8_t protocol() const { return chain_.protocol; }
  bool protocolKnown() const { return chain_.protocolKnown; }
  /// Whether it is one of several fragments, which the first one is, too; an atomic fragment is not.
  bool isFragment() const { return chain_.moreFragments || chain_.fragmentOffset != 0; }
  bool isNonFirstFragment() const { return chain_.fragmentOffset != 0; }
  /// The 40 octets in the frame.
  const uint8_t* fixed() const { return fixed_; }

 private:
  const uint8_t* fixed_ = nullptr;
  Ip6Chain chain_;
};

}  // namespace Nimnet
