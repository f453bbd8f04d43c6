#pragma once

#include <Acl/Types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace Config {

/// A name that stands for a number in the configuration text.
struct NamedNumber {
  std::string_view name;
  uint16_t number;
};

/// A name that stands for an ICMP message: a type, and a code if there is one.
struct IcmpMessage {
  static constexpr int anyCode = -1;

  std::string_view name;
  uint8_t type;
  int16_t code = anyCode;
};

/// A name of a port. The number often serves another purpose with another transport (514 is a remote shell
/// with TCP and the system log with UDP), so a name is not taken across.
struct PortName {
  std::string_view name;
  uint16_t port;
  uint8_t transports;  ///< bits, see transportBit()
};

/// Protocols that some words of the language are only for (IANA, Assigned Internet Protocol Numbers).
inline constexpr uint8_t protocolIcmp = 1;
inline constexpr uint8_t protocolTcp = 6;
inline constexpr uint8_t protocolUdp = 17;
inline constexpr uint8_t protocolIcmpV6 = 58;
inline constexpr uint8_t protocolSctp = 132;

inline bool hasPorts(uint8_t protocol) {
  return protocol == protocolTcp || protocol == protocolUdp || protocol == protocolSctp;
}

/// The bit of TCP, UDP or SCTP in PortName; 0 of other protocols.
constexpr uint8_t transportBit(uint8_t protocol) {
  return protocol == protocolTcp ? 1 : protocol == protocolUdp ? 2 : protocol == protocolSctp ? 4 : 0;
}

/// The number of a protocol name. `ip` and `ipv6` have none: they stand for any protocol.
std::optional<uint8_t> protocolNumber(std::string_view name);

/// The port of a service name with TCP, UDP or SCTP (IANA, Service Name and Transport Protocol Port Number
/// Registry, and short names that are commonly used). Nothing if this protocol has no service of the name.
std::optional<uint16_t> portNumber(std::string_view name, uint8_t protocol);

/// The DSCP of a per-hop behaviour (RFC 2474, 2597, 3246, 5865, 8622).
std::optional<uint8_t> dscpNumber(std::string_view name);

/// The EtherType of a protocol (IEEE 802 numbers).
std::optional<uint16_t> etherTypeNumber(std::string_view name);

/// The ICMP message (RFC 792 and IANA, ICMP Parameters) or ICMPv6 message (RFC 4443 and IANA, ICMPv6
/// Parameters) of a name; null if the protocol has no such message.
const IcmpMessage* icmpMessage(std::string_view name, uint8_t icmpProtocol);

/// The tables themselves, for help texts, documents and tests: of the names for one number the first is the
/// usual one.
std::span<const IcmpMessage> icmpMessages(uint8_t icmpProtocol);
std::span<const NamedNumber> protocolNames();
std::span<const PortName> portNames();
std::span<const NamedNumber> dscpNames();
std::span<const NamedNumber> etherTypeNames();

}  // namespace Config
