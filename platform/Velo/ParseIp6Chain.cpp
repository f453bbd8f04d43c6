#include <Velo/ParseIp6Chain.h>

#include <Nimnet/IpHdr.h>

namespace Velo {

namespace IpProtocol = Nimnet::IpProtocol;

namespace {

bool isExtensionHeader(uint8_t nextHeader) {
  switch (nextHeader) {
    case IpProtocol::hopByHop:
    case IpProtocol::routing:
    case IpProtocol::fragment:
    case IpProtocol::ah:
    case IpProtocol::destinationOptions:
      return true;
    default:
      return false;
  }
}

/// Every extension header is at least this long; an AH that says it is shorter than 12 is 8.
constexpr uint32_t minHeader = 8;
constexpr uint32_t minAh = 12;

}  // namespace

ParseFault walkIp6Chain(const uint8_t* frame, uint32_t& at, uint32_t end, uint8_t nextHeader,
                        uint32_t maxHeaders, Nimnet::Ip6Chain& chain) {
  for (uint32_t headers = 0; isExtensionHeader(nextHeader); ++headers) {
    if (headers == maxHeaders) return ParseFault::ip6ChainTooLong;
    if (end - at < minHeader) return ParseFault::ip6ChainCut;
    const uint8_t* header = frame + at;
    uint32_t length = (header[1] + 1u) * 8;
    if (nextHeader == IpProtocol::fragment) {
      if (chain.hasFragmentHeader) return ParseFault::ip6SecondFragmentHeader;
      const uint16_t field = Nimnet::read16(header + 2);
      chain.hasFragmentHeader = true;
      chain.fragmentOffset = field >> 3;
      chain.moreFragments = (field & 1) != 0;
      length = minHeader;
    } else if (nextHeader == IpProtocol::ah) {
      length = (header[1] + 2u) * 4;
      if (length < minAh) return ParseFault::ip6AhTooShort;
    }
    if (end - at < length) return ParseFault::ip6ChainCut;
    nextHeader = header[0];
    at += length;
    if (chain.fragmentOffset != 0) break;
  }
  chain.protocol = nextHeader;
  chain.protocolKnown = true;
  return ParseFault::none;
}

}  // namespace Velo
