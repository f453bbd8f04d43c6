#pragma once

#include <Kelp/Hash.h>
#include <fmt/format.h>

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Nimnet {

/// A MAC address (IEEE 802-2014, 8.2): six octets in the order of transmission.
struct EthAddr {
  std::array<uint8_t, 6> bytes{};

  static constexpr EthAddr at(const uint8_t* octets) {
    return {{octets[0], octets[1], octets[2], octets[3], octets[4], octets[5]}};
  }
  /// The address as the low 48 bits of a number, first octet highest.
  constexpr uint64_t value() const {
    uint64_t v = 0;
    for (uint8_t b : bytes) v = (v << 8) | b;
    return v;
  }
  static constexpr EthAddr fromValue(uint64_t v) {
    EthAddr a;
    for (int i = 5; i >= 0; --i, v >>= 8) a.bytes[i] = static_cast<uint8_t>(v);
    return a;
  }
  /// Reads "aa:bb:cc:dd:ee:ff" or "aabb.ccdd.eeff"; nothing for any other text.
  static std::optional<EthAddr> parse(std::string_view text);
  std::string str() const;
  constexpr auto operator<=>(const EthAddr&) const = default;
};

/// An IPv4 address in host byte order: 192.0.2.1 is 0xc0000201.
struct IpAddr {
  uint32_t value = 0;

  /// Reads a dotted quad with all four numbers, each 0 to 255 without leading zeros (RFC 6943, 3.1.1).
  static std::optional<IpAddr> parse(std::string_view text);
  std::string str() const;
  constexpr auto operator<=>(const IpAddr&) const = default;
};

/// An IPv6 address as two 64-bit halves in host byte order: 2001:db8::1 is {0x20010db800000000, 1}.
struct Ip6Addr {
  uint64_t high = 0;
  uint64_t low = 0;

  /// Reads the text forms of RFC 4291, 2.2, including an embedded dotted quad.
  static std::optional<Ip6Addr> parse(std::string_view text);
  /// Writes the canonical form of RFC 5952.
  std::string str() const;
  constexpr auto operator<=>(const Ip6Addr&) const = default;
};

}  // namespace Nimnet
