#pragma once

#include <cstdint>
#include <string_view>

namespace Velo {

/// Why a frame is malformed. A frame has at most one fault: the first one from its front.
///
/// Two lengths count below. "Declared" is the length that the IP header gives. "The frame" ends with
/// its length on the wire and, behind LLC, also with the 802.3 length. A capture may have cut a frame short
/// of its length on the wire. It may have cut the payload, also TCP options, which nobody here reads; when it
/// has cut a header that is a fault.
enum class ParseFault : uint8_t {
  none,

  ethHeaderCut,  ///< fewer than 14 octets
  tagCut,        ///< a tag, or the type behind it, is not all there
  tooManyTags,   ///< a third tag

  ipHeaderCut,            ///< fewer octets than 20, or than the header length says
  ipVersion,              ///< not 4
  ipHeaderLength,         ///< under 5 words
  ipTotalLengthTooShort,  ///< under the header length, as the 0 that segmentation offload leaves
  ipTotalLengthTooLong,   ///< beyond the frame

  ip6HeaderCut,             ///< fewer than 40 octets
  ip6Version,               ///< not 6
  ip6PayloadLengthTooLong,  ///< beyond the frame
  ip6ChainCut,              ///< an extension header is not all there; with a payload length of 0 none is
  ip6ChainTooLong,          ///< more than 8 extension headers
  ip6SecondFragmentHeader,
  ip6AhTooShort,  ///< an authentication header under 12 octets

  tcpHeaderCut,            ///< fewer than 20 octets, declared or captured
  tcpDataOffsetTooShort,   ///< under 5 words
  tcpDataOffsetTooLong,    ///< beyond the declared end of the packet
  tcpFragmentAtOffsetOne,  ///< would overwrite the flags of the first fragment (RFC 1858, 4)
  udpHeaderCut,            ///< fewer than 8 octets
  udpLengthTooShort,       ///< the length field is under 8
  sctpHeaderCut,           ///< fewer than 12 octets
  icmpHeaderCut,           ///< fewer than 4 octets
  icmp6HeaderCut,          ///< fewer than 4 octets
};

constexpr uint32_t parseFaultCount = static_cast<uint32_t>(ParseFault::icmp6HeaderCut) + 1;

/// The fault as a drop reason: a short text in lower case that does not change, different for every fault;
/// empty for `none`.
std::string_view reason(ParseFault fault);

}  // namespace Velo
