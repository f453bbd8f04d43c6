#pragma once

#include <Nimnet/Addr.h>
#include <Nimnet/Bytes.h>

namespace Nimnet {

/// Values of the 16-bit field behind the addresses (IEEE 802.3, 3.2.6). Values up to maxLength are the length
/// of what follows in octets; the standard gives 1501 to 1535 no meaning, this agent reads them as types.
namespace EtherType {
constexpr uint16_t maxLength = 1500;
constexpr uint16_t ip = 0x0800;
constexpr uint16_t vlan = 0x8100;  // IEEE 802.1Q customer tag
constexpr uint16_t ip6 = 0x86dd;
constexpr uint16_t serviceVlan = 0x88a8;  // IEEE 802.1Q service tag
constexpr uint16_t stackedVlan = 0x9100;  // outer tag of older bridges

constexpr bool isTag(uint16_t type) { return type == vlan || type == serviceVlan || type == stackedVlan; }
}  // namespace EtherType

/// The Ethernet header where it lies in a frame: destination, source, type or length.
struct EthHdr {
  static constexpr uint32_t size = 14;

  const uint8_t* destinationOctets() const { return bytes; }
  const uint8_t* sourceOctets() const { return bytes + 6; }
  EthAddr destination() const { return EthAddr::at(destinationOctets()); }
  EthAddr source() const { return EthAddr::at(sourceOctets()); }
  /// The field right behind the addresses: of a tagged frame the tag's own type.
  uint16_t typeOrLen() const { return read16(bytes + 12); }

  uint8_t bytes[size];
};
static_assert(sizeof(EthHdr) == EthHdr::size && alignof(EthHdr) == 1);

}  // namespace Nimnet
