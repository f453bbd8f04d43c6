#pragma once

#include <Nimnet/Bytes.h>

#include <cstdint>

namespace Nimnet {

// The headers behind IP where they lie in a frame, all values in host order. Each type has exactly the octets
// that the parser has checked to be there.

/// Which of these headers a packet has.
enum class L4Kind : uint8_t { none, tcp, udp, sctp, icmp, icmp6 };
constexpr uint32_t l4Kinds = 6;

/// TCP (RFC 9293, 3.1): ports, sequence and acknowledgment numbers, data offset in words and flags, window,
/// checksum, urgent pointer. Options follow and may not have been captured.
struct TcpHdr {
  static constexpr L4Kind kind = L4Kind::tcp;
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
  static constexpr uint8_t flagsAt = 13;
  uint8_t flags() const { return bytes[flagsAt]; }

  uint8_t bytes[minSize];
};

/// UDP (RFC 768): ports, length, checksum.
struct UdpHdr {
  static constexpr L4Kind kind = L4Kind::udp;
  static constexpr uint32_t minSize = 8;

  uint16_t sourcePort() const { return read16(bytes); }
  uint16_t destinationPort() const { return read16(bytes + 2); }
  /// In octets, this header included.
  uint32_t length() const { return read16(bytes + 4); }

  uint8_t bytes[minSize];
};

/// The common header of SCTP (RFC 9260, 3.1): ports, verification tag, checksum.
struct SctpHdr {
  static constexpr L4Kind kind = L4Kind::sctp;
  static constexpr uint32_t minSize = 12;

  uint16_t sourcePort() const { return read16(bytes); }
  uint16_t destinationPort() const { return read16(bytes + 2); }

  uint8_t bytes[minSize];
};

/// The part that all ICMP messages have (RFC 792): type, code, checksum.
struct IcmpHdr {
  static constexpr L4Kind kind = L4Kind::icmp;
  static constexpr uint32_t minSize = 4;

  uint8_t type() const { return bytes[0]; }
  uint8_t code() const { return bytes[1]; }

  uint8_t bytes[minSize];
};

/// The part that all ICMPv6 messages have (RFC 4443, 2.1): type, code, checksum.
struct Icmp6Hdr {
  static constexpr L4Kind kind = L4Kind::icmp6;
  static constexpr uint32_t minSize = 4;

  uint8_t type() const { return bytes[0]; }
  uint8_t code() const { return bytes[1]; }

  uint8_t bytes[minSize];
};

/// The header behind IP that a packet has, whatever kind it is. Owns nothing.
class L4 {
 public:
  L4() = default;
  /// No header for a null pointer.
  template <class Hdr>
  explicit L4(const Hdr* hdr) : kind_(hdr ? Hdr::kind : L4Kind::none), octets_(hdr ? hdr->bytes : nothing) {}
  /// A header of this kind that has been checked to be there. For none, four octets that can be read.
  L4(L4Kind kind, const uint8_t* octets) : kind_(kind), octets_(octets) {}
  /// The one of these that is not null, if there is one; of several TCP, then UDP, then SCTP.
  template <class Icmp>
  static L4 of(const Icmp* icmp, const TcpHdr* tcp, const UdpHdr* udp, const SctpHdr* sctp) {
    L4 found(icmp);
    if (sctp) found = L4(sctp);
    if (udp) found = L4(udp);
    if (tcp) found = L4(tcp);
    return found;
  }

  L4Kind kind() const { return kind_; }
  /// The header, or at least four octets of whatever when there is none: they can be read before it is known.
  const uint8_t* octets() const { return octets_; }
  /// The header if it is of this kind, else null.
  template <class Hdr>
  const Hdr* as() const {
    return kind_ == Hdr::kind ? reinterpret_cast<const Hdr*>(octets_) : nullptr;
  }

 private:
  static constexpr uint8_t nothing[4] = {};
  L4Kind kind_ = L4Kind::none;
  const uint8_t* octets_ = nothing;
};

static_assert(sizeof(TcpHdr) == TcpHdr::minSize && alignof(TcpHdr) == 1);
static_assert(sizeof(UdpHdr) == UdpHdr::minSize && alignof(UdpHdr) == 1);
static_assert(sizeof(SctpHdr) == SctpHdr::minSize && alignof(SctpHdr) == 1);
static_assert(sizeof(IcmpHdr) == IcmpHdr::minSize && alignof(IcmpHdr) == 1);
static_assert(sizeof(Icmp6Hdr) == Icmp6Hdr::minSize && alignof(Icmp6Hdr) == 1);

}  // namespace Nimnet
