#pragma once

#include <Nimnet/Bytes.h>

#include <cstdint>

namespace Nimnet {

// The headers behind IP where they lie in a frame, all values in host order. Each type has exactly the octets
// that the parser has checked to be there.

/// TCP (RFC 9293, 3.1): ports, sequence and acknowledgment numbers, data offset in words and flags, window,
/// checksum, urgent pointer. Options follow and may not have been captured.
struct TcpHdr {
  static constexpr uint32_t minSize = 20;
  static constexpr uint8_t fin = 0x01;
  static constexpr uint8_t syn = 0x02;
  static constexpr uint8_t rst = 0x04;
  static constexpr uint8_t psh = 0x08;
  static constexpr uint8_t ack = 0x10;
  static constexpr uint8_t urg = 0x20;

  uint16_t sourcePort() const { return read16(bytes); }
  uint16_t destinationPort() const { return read16(bytes + 2); }
  /// In octets: 0 to 60; under 20 in a malformed segment.
  uint32_t headerLength() const { return (bytes[12] >> 4) * 4u; }
  /// The eight control bits, CWR highest.
  uint8_t flags() const { return bytes[13]; }

  uint8_t bytes[minSize];
};

/// UDP (RFC 768): ports, length, checksum.
struct UdpHdr {
  static constexpr uint32_t minSize = 8;

  uint16_t sourcePort() const { return read16(bytes); }
  uint16_t destinationPort() const { return read16(bytes + 2); }
  /// In octets, this header included.
  uint32_t length() const { return read16(bytes + 4); }

  uint8_t bytes[minSize];
};

/// The common header of SCTP (RFC 9260, 3.1): ports, verification tag, checksum.
struct SctpHdr {
  static constexpr uint32_t minSize = 12;

  uint16_t sourcePort() const { return read16(bytes); }
  uint16_t destinationPort() const { return read16(bytes + 2); }

  uint8_t bytes[minSize];
};

/// The part that all ICMP messages have (RFC 792): type, code, checksum.
struct IcmpHdr {
  static constexpr uint32_t minSize = 4;

  uint8_t type() const { return bytes[0]; }
  uint8_t code() const { return bytes[1]; }

  uint8_t bytes[minSize];
};

/// The part that all ICMPv6 messages have (RFC 4443, 2.1): type, code, checksum.
struct Icmp6Hdr {
  static constexpr uint32_t minSize = 4;

  uint8_t type() const { return bytes[0]; }
  uint8_t code() const { return bytes[1]; }

  uint8_t bytes[minSize];
};

static_assert(sizeof(TcpHdr) == TcpHdr::minSize && alignof(TcpHdr) == 1);
static_assert(sizeof(UdpHdr) == UdpHdr::minSize && alignof(UdpHdr) == 1);
static_assert(sizeof(SctpHdr) == SctpHdr::minSize && alignof(SctpHdr) == 1);
static_assert(sizeof(IcmpHdr) == IcmpHdr::minSize && alignof(IcmpHdr) == 1);
static_assert(sizeof(Icmp6Hdr) == Icmp6Hdr::minSize && alignof(Icmp6Hdr) == 1);

}  // namespace Nimnet
