#pragma once

#include <Nimnet/Addr.h>
#include <Nimnet/Bytes.h>

namespace Nimnet {

/// Protocol and Next Header numbers of headers that the parser reads (they have one number space, RFC 8200,
/// 4).
namespace IpProtocol {
constexpr uint8_t hopByHop = 0;
constexpr uint8_t icmp = 1;
constexpr uint8_t tcp = 6;
constexpr uint8_t udp = 17;
constexpr uint8_t routing = 43;
constexpr uint8_t fragment = 44;
constexpr uint8_t ah = 51;
constexpr uint8_t icmp6 = 58;
constexpr uint8_t destinationOptions = 60;
constexpr uint8_t sctp = 132;
}  // namespace IpProtocol

/// The IPv4 header where it lies in a frame (RFC 791, 3.1), all values in host order. Its 20 fixed octets are
/// there; the options behind them may not have been captured, which only the parser knows.
///
///   0       version (4 bits), header length in words (4 bits)
///   1       type of service: DSCP (6 bits, RFC 2474), ECN (2 bits)
///   2..3    total length, this header included
///   4..5    identification
///   6..7    reserved, don't fragment, more fragments, fragment offset (13 bits) in units of 8 octets
///   8       time to live
///   9       protocol
///   10..11  header checksum
///   12..15  source
///   16..19  destination
struct IpHdr {
  static constexpr uint32_t minSize = 20;

  uint8_t version() const { return bytes[0] >> 4; }
  /// In octets: 0 to 60; under 20 in a malformed packet.
  uint32_t headerLength() const { return (bytes[0] & 0x0fu) * 4; }
  uint8_t tos() const { return bytes[1]; }
  uint8_t dscp() const { return tos() >> 2; }
  /// In octets.
  uint32_t totalLength() const { return read16(bytes + 2); }
  bool moreFragments() const { return (bytes[6] & 0x20) != 0; }
  /// In units of 8 octets.
  uint16_t fragmentOffset() const { return read16(bytes + 6) & 0x1fff; }
  /// Whether it is one of several fragments; the first one is, too.
  bool isFragment() const { return moreFragments() || fragmentOffset() != 0; }
  bool isNonFirstFragment() const { return fragmentOffset() != 0; }
  uint8_t ttl() const { return bytes[8]; }
  uint8_t protocol() const { return bytes[9]; }
  IpAddr source() const { return {read32(bytes + 12)}; }
  IpAddr destination() const { return {read32(bytes + 16)}; }

  uint8_t bytes[minSize];
};
static_assert(sizeof(IpHdr) == IpHdr::minSize && alignof(IpHdr) == 1);

}  // namespace Nimnet
