#pragma once

#include <Velo/ParsedPacket.h>

#include <cstdint>

namespace Velo {

/// A number that is the same for all packets of a flow: of IP packets made from addresses, protocol and ports
/// (no ports for any fragment, and of IPv6 no protocol, so that the fragments of a datagram stay together),
/// of all others from the MAC addresses. Call after the full parse.
uint32_t flowHash(const ParsedPacket& packet);

}  // namespace Velo
